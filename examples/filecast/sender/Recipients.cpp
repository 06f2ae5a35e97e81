#include "sender/Recipients.h"

#include "hosts/VORNDeclRecipient.h"
#include "wire/Failure.h"

namespace {

class RecipientCount : public HTExecFunc {
public:
  int LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    return 1;
  }
  int LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override { return 1; }
  int Node(const HTKeyClass* /*key*/, HTNodeClass* node, int /*level*/) override {
    count += node->IsMarked() != 0 ? 0 : 1;
    return 1;
  }

  int count = 0;
};

}  // namespace

void Recipients::RecipientRemove::Remove(const HTKeyClass* /*key*/, void* data) {
  delete static_cast<VORNDeclRecipient*>(data);
}

void Recipients::Declare(const AddressPort& place) {
  if (VornDeclRecipientAdd(&_table, place.address, place.port, &_remove, 1) == 0)
    throw Failure(ExitCode::INTERNAL, "no memory for a recipient");
}

void Recipients::Withdraw(const AddressPort& place) {
  const std::string text = AddressPortText(place);
  HTKeyClass key;
  key.Set(text.c_str());
  VornDeclRecipientMarkForRemoval(&_table, &key);
  _table.RemoveMarked(HTNodeClass::LOCK);
}

int Recipients::CountGet() {
  RecipientCount visitor;
  _table.ForAllMatches(nullptr, &visitor, HTNodeClass::LOCK);
  return visitor.count;
}

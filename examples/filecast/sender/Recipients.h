#ifndef FILECAST_SENDER_RECIPIENTS_H
#define FILECAST_SENDER_RECIPIENTS_H

#include "platform/HTClass.h"
#include "wire/Addresses.h"

/// The places that still need data, as declared recipients: the sender has done its work when none
/// is left. Receivers that answer from one address and port are one place, which goes when each of
/// them was withdrawn.
class Recipients {
public:
  /// A receiver at `place` needs data. Throws a `Failure` without memory.
  void Declare(const AddressPort& place);
  /// A receiver that was declared at `place` needs none any more.
  void Withdraw(const AddressPort& place);
  /// How many places there are.
  int CountGet();

private:
  class RecipientRemove : public HTRemoveFunc {
  public:
    void Remove(const HTKeyClass* key, void* data) override;
  };

  RecipientRemove _remove;  // the table uses it while it is destroyed, so it comes first
  HTClass _table;
};

#endif

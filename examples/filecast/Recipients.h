#ifndef FILECAST_RECIPIENTS_H
#define FILECAST_RECIPIENTS_H

#include "platform/HTClass.h"

#include "Addresses.h"

/// The receivers that the sender serves, as declared recipients. Receivers that answer from one
/// address and port are one recipient, declared once for each.
class Recipients {
public:
  /// Throws a `Failure` without memory.
  void Declare(const AddressPort& place);
  /// Takes one declaration back, and the recipient out of the table with the last one.
  void Withdraw(const AddressPort& place);
  /// How many places data goes to.
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

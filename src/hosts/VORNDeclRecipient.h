#ifndef HOSTS_VORN_DECL_RECIPIENT_H
#define HOSTS_VORN_DECL_RECIPIENT_H

#include "platform/HTClass.h"
#include "platform/VornExport.h"

/// @file
/// Recipients that the program declares, counted in a hash table of the program. An entry's key is
/// the recipient's text, "10.0.0.1" or "10.0.0.1:7400". Its data is a `VORNDeclRecipient`. It is
/// made here with `new`; the program's removal function frees it, with `delete`, when the table
/// removes the entry.
///
/// The counts have no lock. One thread at a time declares, withdraws or sweeps, and during that
/// time no walk looks at counts.

/// A place to which data goes. Append only: programs are linked against the order of the fields.
class VORN_API VORNDeclRecipient {
public:
  unsigned int address;  ///< IPv4, host byte order
  int port;              ///< host byte order
  int count = 1;         ///< declarations less withdrawals; negative after too many withdrawals

  /// A recipient that is declared once. Anything is stored; ask `IsValid`.
  VORNDeclRecipient(unsigned int hostAddress, int hostPort);
  /// Frees nothing: a recipient owns nothing.
  ~VORNDeclRecipient();

  /// True if the address and the port are not 0 and the count is above 0.
  bool IsValid() const;
};

/// Declares a recipient. Its text is the address and, if `withPort` is not 0, the port; without
/// `withPort` all ports of an address are one entry, which keeps the port that came first. If the
/// table has an entry with this text, its count grows by 1 and its mark for removal is removed.
/// Otherwise an entry is made, with `removalFunction`; if that is null, the program frees the data
/// itself. Returns 1. Returns 0, with nothing changed, for a null table, for address or port 0 in a
/// new entry, without memory, if the table refuses the entry, and for a count that cannot grow.
VORN_API int VornDeclRecipientAdd(HTClass* table, unsigned int address, int port,
                                  HTRemoveFunc* removalFunction, int withPort);

/// Withdraws one declaration of the entry with `key`. When the count becomes 0, the entry is marked
/// for removal. It stays, and can be declared again, until the program sweeps the table. A
/// withdrawal too many counts as well: the count becomes negative, and as many declarations only
/// bring it back to 0. Nothing happens for a key that is not in the table.
VORN_API void VornDeclRecipientMarkForRemoval(HTClass* table, HTKeyClass* key);

#endif

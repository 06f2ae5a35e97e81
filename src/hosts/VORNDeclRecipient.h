#ifndef HOSTS_VORN_DECL_RECIPIENT_H
#define HOSTS_VORN_DECL_RECIPIENT_H

#include "platform/HTClass.h"
#include "platform/VornExport.h"

/// Recipients that the program declares, counted in a hash table of its own. An entry's key is the
/// recipient's text, "10.0.0.1" or "10.0.0.1:7400"; its data is a `VORNDeclRecipient`, made here
/// with `new` and freed by the program's removal function, with `delete`, when the table lets go of
/// the entry.
///
/// The counts have no lock: one thread at a time declares, withdraws or sweeps, and keeps walks
/// that look at counts away meanwhile.

/// A place to which data goes.
class VORN_API VORNDeclRecipient {
public:
  unsigned int address;  ///< IPv4, host byte order
  int port;              ///< host byte order
  int count = 1;         ///< declarations not yet withdrawn

  VORNDeclRecipient(unsigned int hostAddress, int hostPort);
  ~VORNDeclRecipient();

  /// True when there is an address, a port and at least one declaration.
  bool IsValid() const;
};

/// Declares a recipient: counts one more declaration of the entry with its text, which is the
/// address and, for a non-zero `withPort`, the port, and takes a mark for removal off it; or makes
/// the entry, with `removalFunction` (null: the program frees the data itself). Without `withPort`
/// all ports of an address are one entry, which keeps the first one's. Returns 1; or 0 with nothing
/// changed for a null table, for address or port 0 in a new entry, without memory, when the table
/// refuses the entry, and for a count that cannot grow.
VORN_API int VornDeclRecipientAdd(HTClass* table, unsigned int address, int port,
                                  HTRemoveFunc* removalFunction, int withPort);

/// Withdraws one declaration of the entry with `key`. The last one marks the entry for removal: it
/// stays, and can be declared again, until the program sweeps the table. Each withdrawal counts,
/// one too many as well: it has to be made good by a declaration. Nothing happens for a key that is
/// not in the table.
VORN_API void VornDeclRecipientMarkForRemoval(HTClass* table, HTKeyClass* key);

#endif

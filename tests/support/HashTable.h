#ifndef SUPPORT_HASH_TABLE_H
#define SUPPORT_HASH_TABLE_H

#include "platform/HTClass.h"

#include <string>

constexpr short EVERY_ENTRY = -32767;

// Both work on a text that is gone after the call.
inline HTNodeClass* Find(HTClass& table, const std::string& text, short which = EVERY_ENTRY) {
  HTKeyClass key;
  key.Set(text.c_str());
  return table.Find(&key, which, HTNodeClass::LOCK);
}

inline int Insert(HTClass& table, const std::string& text, void* data,
                  HTRemoveFunc* remove = nullptr) {
  HTKeyClass key;
  key.Set(text.c_str());
  return table.InsertNode(&key, data, 32, remove, HTNodeClass::LOCK);
}

#endif

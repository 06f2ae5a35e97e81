#ifndef SUPPORT_HASH_TABLE_H
#define SUPPORT_HASH_TABLE_H

#include "platform/HTClass.h"

#include <string>

// Both work on a text that is gone after the call.
inline HTNodeClass* Find(HTClass& table, const std::string& text) {
  HTKeyClass key;
  key.Set(text.c_str());
  return table.Find(&key, HTClass::IN_USE | HTClass::MARKED, HTNodeClass::LOCK);
}

inline int Insert(HTClass& table, const std::string& text, void* data,
                  HTRemoveFunc* remove = nullptr) {
  HTKeyClass key;
  key.Set(text.c_str());
  return table.InsertNode(&key, data, 32, remove, HTNodeClass::LOCK);
}

#endif

#include "platform/KelMutex.h"

#include <new>

#include <pthread.h>

struct KELMutex {
  pthread_mutex_t native;
};

KELMutex* KelMutexNew() {
  auto* mutex = new (std::nothrow) KELMutex;
  if (mutex != nullptr && pthread_mutex_init(&mutex->native, nullptr) != 0) {
    delete mutex;
    return nullptr;
  }
  return mutex;
}

int KelMutexTake(KELMutex* mutex) {
  return mutex != nullptr && pthread_mutex_lock(&mutex->native) == 0 ? 1 : 0;
}

int KelMutexGive(KELMutex* mutex) {
  return mutex != nullptr && pthread_mutex_unlock(&mutex->native) == 0 ? 1 : 0;
}

void KelMutexDelete(KELMutex* mutex) {
  if (mutex == nullptr)
    return;
  pthread_mutex_destroy(&mutex->native);
  delete mutex;
}

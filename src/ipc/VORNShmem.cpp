#include "ipc/VORNShmem.h"

#include "utils/internal/Diagnostics.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace {

constexpr int CREATION_FLAGS = IPC_CREAT | IPC_EXCL | 0664;

ShMHandle* HandleNew() { return static_cast<ShMHandle*>(std::calloc(1, sizeof(ShMHandle))); }

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);

// The kernel attaches at page boundaries, so the word at the start is aligned.
std::atomic_ref<std::uint32_t> LengthWord(const ShMHandle* handle) {
  return std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(handle->base));
}

bool SegmentAttach(ShMHandle* handle) {
  void* address = shmat(handle->id, nullptr, 0);
  if (reinterpret_cast<std::intptr_t>(address) == -1)
    return false;
  handle->base = static_cast<char*>(address);
  handle->data = handle->base + SHM_LENGTH_WORD_SIZE;
  return true;
}

bool SegmentMake(ShMHandle* handle, int key, std::uint32_t length) {
  // A 32-bit process could not ask for more, and all processes share one limit.
  handle->id = length <= UINT32_MAX - SHM_LENGTH_WORD_SIZE
                   ? shmget(key, std::size_t{length} + SHM_LENGTH_WORD_SIZE, CREATION_FLAGS)
                   : -1;
  if (handle->id < 0 || !SegmentAttach(handle))
    return false;
  handle->size = std::size_t{length} + SHM_LENGTH_WORD_SIZE;
  // An opener that comes before this store finds length 0. Partner: the load in ShMLengthGet.
  LengthWord(handle).store(length, std::memory_order_release);
  return true;
}

// Only the kernel knows how large a segment really is: its length word can say anything. It also
// knows of a removal between the look by key and the attaching, after which nobody else would ever
// see what is written here.
bool SegmentFind(ShMHandle* handle, int key) {
  handle->id = shmget(key, 0, 0);
  shmid_ds state{};
  if (handle->id < 0 || !SegmentAttach(handle) || shmctl(handle->id, IPC_STAT, &state) < 0)
    return false;
  handle->size = state.shm_segsz;
  return handle->size >= SHM_LENGTH_WORD_SIZE && (state.shm_perm.mode & SHM_DEST) == 0;
}

bool CopyIsInBounds(ShMHandle* handle, const void* memory, unsigned int count) {
  return handle != nullptr && (memory != nullptr || count == 0) && count <= ShMLengthGet(handle) &&
         count <= handle->size - SHM_LENGTH_WORD_SIZE;
}

}  // namespace

ShMHandle* ShMNew(int key, unsigned int length) {
  if (key == 0 || length == 0)
    return nullptr;
  ShMHandle* handle = HandleNew();
  if (handle == nullptr || SegmentMake(handle, key, length))
    return handle;
  DiagnosticPrint(Diagnostic::FAILURE, WarnSharedMemory);
  ShMDelete(handle, 1);
  return nullptr;
}

ShMHandle* ShMOpen(int key) {
  ShMHandle* handle = HandleNew();
  if (handle == nullptr || SegmentFind(handle, key))
    return handle;
  DiagnosticPrint(Diagnostic::SHARED_MEMORY, WarnSharedMemoryOpen);
  ShMDelete(handle, 0);
  return nullptr;
}

void ShMDelete(ShMHandle* handle, int destroy) {
  if (handle == nullptr)
    return;
  if (handle->base != nullptr)
    shmdt(handle->base);
  if (destroy != 0 && handle->id >= 0)
    shmctl(handle->id, IPC_RMID, nullptr);
  std::free(handle);
}

void* ShMAddressGet(ShMHandle* handle) { return handle != nullptr ? handle->data : nullptr; }

unsigned int ShMLengthGet(ShMHandle* handle) {
  if (handle == nullptr)
    return 0;
  return LengthWord(handle).load(std::memory_order_acquire);  // partner: the store in SegmentMake
}

int ShMWrite(ShMHandle* handle, const void* source, unsigned int count) {
  if (!CopyIsInBounds(handle, source, count))
    return 0;
  if (count > 0)
    std::memmove(handle->data, source, count);
  return 1;
}

int ShMRead(ShMHandle* handle, void* destination, unsigned int count) {
  if (!CopyIsInBounds(handle, destination, count))
    return 0;
  if (count > 0)
    std::memmove(destination, handle->data, count);
  return 1;
}

"""Takes messages out of one queue and puts each, reversed, into another, which it makes.

Usage: queue_peer.py FROM_ID TO_ID COUNT SIZE. Written from the layout alone: System V keys, the length
word, the two offsets, and length-prefixed messages in a ring.
"""
import ctypes
import struct
import sys
import time

libc = ctypes.CDLL(None, use_errno=True)
libc.shmat.restype = ctypes.c_void_p
SETVAL = 16
IPC_CREAT = 0o1000
HEADER = 12  # length word, write offset, read offset


class SemBuf(ctypes.Structure):
    _fields_ = [("number", ctypes.c_ushort), ("operation", ctypes.c_short), ("flags", ctypes.c_short)]


def checked(result):
    if result in (-1, ctypes.c_void_p(-1).value):
        sys.exit("system call failed: errno %d" % ctypes.get_errno())
    return result


class Queue:
    def __init__(self, queue_id, size=None):
        """Opens a queue, or makes one for so many bytes. The length word says that it is ready."""
        key = ctypes.c_int(0xABBD0000 + 2 * queue_id).value
        flags = 0 if size is None else IPC_CREAT | 0o666
        length = 0 if size is None else HEADER + size + 1
        self.semaphore = checked(libc.semget(key, 1, flags))
        self.mutex = checked(libc.semget(key + 1, 1, flags))
        segment = checked(libc.shmget(key, ctypes.c_size_t(length), flags))
        self.base = checked(libc.shmat(segment, None, 0))
        if size is not None:
            self.give(self.mutex)
            self.word_set(0, length - 4)
        self.capacity = self.word(0) - 8

    def word(self, offset):
        return ctypes.c_int32.from_address(self.base + offset).value

    def word_set(self, offset, value):
        ctypes.c_int32.from_address(self.base + offset).value = value

    def ring(self, position, count):
        wrapped = [(position + i) % self.capacity for i in range(count)]
        return [ctypes.c_ubyte.from_address(self.base + HEADER + at) for at in wrapped]

    def take(self, handle):
        checked(libc.semop(handle, ctypes.byref(SemBuf(0, -1, 0)), ctypes.c_size_t(1)))

    def give(self, handle):
        checked(libc.semctl(handle, 0, SETVAL, 1))

    def receive(self):
        while self.word(4) == self.word(8):
            self.take(self.semaphore)
        read = self.word(8)
        length, = struct.unpack("=i", bytes(byte.value for byte in self.ring(read, 4)))
        text = bytes(byte.value for byte in self.ring(read + 4, length))
        self.word_set(8, (read + 4 + length) % self.capacity)
        return text

    def send(self, text):
        """False when there is no room."""
        self.take(self.mutex)
        write = self.word(4)
        space = (self.word(8) - write - 1) % self.capacity
        fits = len(text) + 4 <= space
        if fits:
            frame = struct.pack("=i", len(text)) + text
            for byte, value in zip(self.ring(write, len(frame)), frame):
                byte.value = value
            self.word_set(4, (write + len(frame)) % self.capacity)
            self.give(self.semaphore)
        self.give(self.mutex)
        return fits


source_id, target_id, count, target_size = map(int, sys.argv[1:])
source, target = Queue(source_id), Queue(target_id, target_size)
for _ in range(count):
    message = source.receive()[::-1]
    deadline = time.monotonic() + 10
    while not target.send(message):
        if time.monotonic() > deadline:
            sys.exit("no room for 10 seconds")

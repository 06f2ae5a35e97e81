#ifndef EXAMPLES_QUEUE_SEND_FAILURE_H
#define EXAMPLES_QUEUE_SEND_FAILURE_H

/// What a 0 of `ShmMsgQ::Send` can mean. `Send` itself takes no time to find out what most programs
/// do not ask. These two files can be copied as they are.
enum class SendFailure {
  WRONG_MESSAGE,  ///< null data or a negative length: the caller's mistake
  TOO_LONG,       ///< longer than the whole queue: it will never fit
  FULL,           ///< no room for it now: wait, or drop it
  GONE,           ///< there is no queue of this id: open it anew when its receiver has come back
  NOT_ALLOWED,    ///< this user may not use the queue, or a part of it
  DAMAGED,        ///< some process has written over it: its receiver removes it and makes a new one
  PASSED,         ///< nothing is wrong any more: there was no room, or a signal ended the wait
};

/// Looks at queue `id` right after a `Send(data, length)` to it returned 0. It changes nothing and
/// waits for nothing. Others go on meanwhile, so the answer is about the moment of the look.
SendFailure SendFailureGet(int id, const char* data, int length);

#endif

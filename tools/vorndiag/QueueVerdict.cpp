#include "QueueVerdict.h"

#include "Process.h"

#include <cstring>
#include <ctime>

namespace {

const std::string GIVE = " --give-mutex";
constexpr int WATCH_LOOKS = 10;
constexpr long WATCH_PAUSE_NANOSECONDS = 100000000;

void WatchPause() {
  const timespec pause{0, WATCH_PAUSE_NANOSECONDS};
  nanosleep(&pause, nullptr);
}

bool IsSameHold(const SetState& a, const SetState& b) {
  return b.id == a.id && b.value == 0 && b.pid == a.pid && b.taken == a.taken;
}

bool ReceiverSleepsBesideMessages(const QueueState& state) {
  return state.segment.messages > 0 && state.semaphore.waiting > 0 && state.semaphore.value == 0;
}

// Whether messages are taken, as seen within a second.
bool ReceiverMoves(int id, const SegmentState& before) {
  for (int i = 0; i < WATCH_LOOKS; ++i) {
    WatchPause();
    const SegmentState now = QueueLook(id).segment;
    if (now.readOffset != before.readOffset || now.id != before.id)
      return true;
  }
  return false;
}

/// Collects the lines about one queue.
class Judge {
public:
  Judge(int id, const QueueState& state) : _id(std::to_string(id)), _state(state) {}
  Verdict Get();

private:
  void Trouble(const std::string& line);
  void Note(const std::string& line) { _verdict.lines.push_back(line); }
  std::string Advice(const std::string& option) const {
    return "`vorndiag queue " + _id + option + "`";
  }
  void LeftOversJudge();
  void SegmentJudge();
  void MutexJudge();
  void ReceiverJudge();
  void ProgressJudge();

  std::string _id;
  const QueueState& _state;
  Verdict _verdict;
};

void Judge::Trouble(const std::string& line) {
  _verdict.isTrouble = true;
  _verdict.lines.push_back(line);
}

void Judge::LeftOversJudge() {
  const SetState& mutex = _state.mutex;
  if (mutex.Exists() && mutex.value == 0)
    Trouble("the segment is gone but a taken mutex is left: whoever makes queue " + _id +
            " waits for it; remove it with " + Advice(" --remove"));
  else
    Note("semaphore or mutex are left without a segment; the next queue " + _id +
         " uses them, or remove them with " + Advice(" --remove"));
}

void Judge::SegmentJudge() {
  const SegmentState& segment = _state.segment;
  const std::string cure = "; stop its users, then " + Advice(" --remove");
  if (segment.error != 0)
    Trouble(std::string("the segment cannot be looked at: ") + std::strerror(segment.error));
  else if (segment.problem != nullptr)
    Trouble(std::string("the header is damaged: ") + segment.problem + cure);
  else if (segment.walk == Walk::DAMAGED)
    Trouble("the messages are damaged at ring offset " + std::to_string(segment.damageOffset) +
            ": a receiver was killed while it took one, or something else wrote there" + cure);
  if (segment.error == 0 && segment.kernel.shm_nattch == 0)
    Trouble("nobody is attached: its users have ended without removing it; " + Advice(" --remove") +
            " does");
}

void Judge::MutexJudge() {
  const SetState& mutex = _state.mutex;
  const std::string who = ProcessText(mutex.pid, mutex.taken);
  const std::string give = Advice(GIVE);
  if (!mutex.Exists())
    Trouble("the mutex is missing: the next sender that opens the queue makes one");
  switch (MutexWatch(mutex)) {
  case MutexHold::FREE:
  case MutexHold::BUSY:
    return;
  case MutexHold::DEAD:
    return Trouble("the mutex was taken by " + who + ": a sender died; give it back with " + give);
  case MutexHold::STOPPED:
    return Trouble("the mutex is held by " + who +
                   ": let it go on (kill -CONT), or end it and give the mutex back with " + give);
  case MutexHold::HELD:
    return Trouble("the mutex has been held for a second by " + who +
                   ", which lives: find out what it does; if it is not sending, " +
                   Advice(GIVE + " --force"));
  case MutexHold::UNSEEN:
    return Trouble("the mutex has been held for a second by " + who +
                   ": look from its process namespace; if it is gone, " +
                   Advice(GIVE + " --force"));
  }
}

void Judge::ReceiverJudge() {
  const SetState& semaphore = _state.semaphore;
  if (!semaphore.Exists())
    return Trouble("the semaphore is missing: the receiver fails when the queue is empty; "
                   "start it again");
  if (semaphore.waiting > 1)
    Trouble("more than one receiver waits: a queue has one, others damage it");
  if (!ReceiverSleepsBesideMessages(_state))
    return;
  WatchPause();
  if (ReceiverSleepsBesideMessages(QueueLook(std::stoi(_id))))
    Trouble("the receiver sleeps beside messages: a sender died before it could wake it; the next "
            "message does, or " +
            Advice(GIVE));
}

void Judge::ProgressJudge() {
  constexpr int LENGTH_SIZE = 4;
  const SegmentState& segment = _state.segment;
  if (segment.messages == 0 || segment.walk != Walk::WHOLE)
    return;
  const bool isFull = segment.capacity - 1 - segment.used < segment.longest + LENGTH_SIZE;
  if (ReceiverMoves(std::stoi(_id), segment)) {
    if (isFull)
      Note("the queue was full for a moment: the receiver is slower than its senders");
    return;
  }
  Trouble((isFull ? std::string("the queue is full")
                  : std::to_string(segment.messages) + " messages wait and none was taken in a "
                                                       "second") +
          ": the receiver is too slow, stopped or gone; the queue was made by " +
          ProcessText(segment.kernel.shm_cpid, segment.kernel.shm_ctime));
}

Verdict Judge::Get() {
  if (!_state.segment.Exists()) {
    LeftOversJudge();
    return _verdict;
  }
  SegmentJudge();
  MutexJudge();
  ReceiverJudge();
  ProgressJudge();
  if (_verdict.lines.empty())
    Note(_state.semaphore.waiting > 0 ? "nothing wrong: the receiver waits for messages"
                                      : "nothing wrong, and no receiver waits just now");
  return _verdict;
}

}  // namespace

MutexHold MutexWatch(const SetState& mutex) {
  if (!mutex.Exists() || mutex.value != 0 || mutex.error != 0)
    return MutexHold::FREE;
  for (int i = 0;; ++i) {
    const ProcessState holder = ProcessStateGet(mutex.pid, mutex.taken);
    // After that: one that has ended may have given it back first.
    const SetState now = SetLook(mutex.key);
    if (!IsSameHold(mutex, now))
      return now.value != 0 ? MutexHold::FREE : MutexHold::BUSY;
    if (holder == ProcessState::GONE)
      return MutexHold::DEAD;
    if (holder == ProcessState::STOPPED)
      return MutexHold::STOPPED;
    if (i == WATCH_LOOKS)
      return holder == ProcessState::UNKNOWN ? MutexHold::UNSEEN : MutexHold::HELD;
    WatchPause();
  }
}

Verdict VerdictGet(int id, const QueueState& state) { return Judge(id, state).Get(); }

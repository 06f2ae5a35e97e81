#include "vorndiag/QueueVerdict.h"

#include <cstring>

namespace {

const std::string REMOVE = " --remove";
const std::string GIVE = " --give-mutex";
const std::string FORCE = " --force";

std::string SetForeignText(const char* what, const SetLook& set) {
  if (!set.Exists() || set.error != 0 || set.semaphores == 1)
    return "";
  return std::string("the ") + what + "'s key has a set of " + std::to_string(set.semaphores) +
         " semaphores";
}

// What a receiver is in the middle of looks damaged, until it has moved on.
bool IsDamaged(const SegmentLook& before, const SegmentLook& after) {
  return before.messages.isDamaged && after.messages.isDamaged &&
         before.offsets->read == after.offsets->read;
}

// For another message like the longest that is in it.
bool IsFull(const SegmentLook& segment) {
  return segment.offsets && segment.messages.count > 0 &&
         !MessageFits(RingFreeGet(*segment.offsets, segment.capacity), segment.messages.longest);
}

bool HasWhole(const SegmentLook& segment) {
  return segment.messages.count > 0 && !segment.messages.isDamaged;
}

/// Collects the lines about one queue.
class Judge {
public:
  Judge(int id, const QueueLook& before, const QueueLook& after)
      : _id(std::to_string(id)), _before(before), _after(after) {}
  Verdict Get();

private:
  void Trouble(const std::string& line) { _troubles.push_back(line); }
  void Note(const std::string& line) { _notes.push_back(line); }
  std::string Advice(const std::string& options) const {
    return "`vorndiag queue " + _id + options + "`";
  }
  bool IsTheSame() const;
  void LeftOversJudge();
  void QueueJudge();
  void SegmentJudge();
  void SetsJudge();
  void MutexJudge();
  void ReceiverJudge();
  void ProgressJudge();

  std::string _id;
  const QueueLook& _before;
  const QueueLook& _after;
  std::vector<std::string> _troubles;
  std::vector<std::string> _notes;
};

bool Judge::IsTheSame() const {
  return _before.segment.id == _after.segment.id && _before.semaphore.id == _after.semaphore.id &&
         _before.mutex.id == _after.mutex.id;
}

void Judge::LeftOversJudge() {
  const SetLook& mutex = _after.mutex;
  if (mutex.Exists() && mutex.error == 0 && mutex.value == 0)
    Trouble("the segment is gone but a taken mutex is left: whoever makes queue " + _id +
            " waits for it; remove it with " + Advice(REMOVE));
  else
    Note("semaphore or mutex are left without a segment; the next queue " + _id +
         " uses them, or remove them with " + Advice(REMOVE));
}

void Judge::SegmentJudge() {
  const SegmentLook& segment = _after.segment;
  const std::string cure = "; stop its users, then " + Advice(REMOVE);
  if (segment.error != 0)
    return Trouble(std::string("the segment cannot be looked at: ") + std::strerror(segment.error));
  if (!_before.segment.offsets && !segment.offsets)
    Trouble("the header is damaged: an offset lies outside the ring" + cure);
  if (IsDamaged(_before.segment, segment))
    Trouble("the messages are damaged at ring offset " +
            std::to_string(segment.messages.damageOffset) +
            ": a receiver was killed in the middle of one, or something else wrote there" + cure);
  if (segment.kernel.shm_nattch == 0)
    Trouble("nobody is attached: its users have ended without removing it; " + Advice(REMOVE) +
            " does");
}

void Judge::SetsJudge() {
  const SetLook& mutex = _after.mutex;
  const SetLook& semaphore = _after.semaphore;
  const std::string receiver = "the receiver fails when the queue is empty; start it again";
  if (!mutex.Exists() && !semaphore.Exists())
    return Trouble("semaphore and mutex are missing: the next sender that opens the queue makes "
                   "them; " +
                   receiver);
  if (!mutex.Exists())
    Trouble("the mutex is missing: the next sender that opens the queue makes one");
  if (!semaphore.Exists())
    Trouble("the semaphore is missing: " + receiver);
  if (mutex.error != 0)
    Trouble(std::string("the mutex cannot be looked at: ") + std::strerror(mutex.error));
  if (semaphore.error != 0)
    Trouble(std::string("the semaphore cannot be looked at: ") + std::strerror(semaphore.error));
}

void Judge::MutexJudge() {
  const std::string who = ProcessText(_after.mutex.process);
  const std::string give = Advice(GIVE);
  const std::string force = Advice(GIVE + FORCE);
  switch (MutexHoldGet(_before.mutex, _after.mutex)) {
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
                   ", which lives: find out what it does; if it is not sending, " + force);
  case MutexHold::UNSEEN:
    return Trouble("the mutex has been held for a second by " + who +
                   ": look as root in its process namespace; if it is gone, " + force);
  case MutexHold::UNTAKEN:
    return Trouble(
        "the mutex is at 0, but no sender took it last: it never got its first value, or "
        "another program set it; if nobody sends, " +
        force);
  }
}

void Judge::ReceiverJudge() {
  if (_before.semaphore.waiting > 1 && _after.semaphore.waiting > 1)
    Trouble("more than one receiver waits: a queue has one, others damage it");
}

// One line for one cause: nobody receives where nobody is attached.
void Judge::ProgressJudge() {
  const SegmentLook& before = _before.segment;
  const SegmentLook& segment = _after.segment;
  if (segment.kernel.shm_nattch == 0 || !HasWhole(before) || !HasWhole(segment))
    return;
  if (ReceiverSleepsBesideMessages(_before) && ReceiverSleepsBesideMessages(_after))
    return Trouble("the receiver sleeps beside messages: a sender died before it could wake it; "
                   "the next message does, or " +
                   Advice(GIVE));
  if (before.offsets->read != segment.offsets->read)
    return;
  Trouble((IsFull(segment) ? std::string("the queue is full")
                           : std::to_string(segment.messages.count) +
                                 " messages wait and none was received in a second") +
          ": the receiver is too slow, stopped or gone; the queue was made by " +
          ProcessText(segment.maker));
}

void Judge::QueueJudge() {
  SegmentJudge();
  SetsJudge();
  MutexJudge();
  ReceiverJudge();
  if (_after.segment.error == 0)
    ProgressJudge();
  if (IsFull(_before.segment))
    Note("the queue was full for a moment: the receiver is slower than its senders");
  else
    Note(_after.semaphore.waiting > 0 ? "nothing wrong: the receiver waits for messages"
                                      : "nothing wrong, and no receiver waits just now");
}

Verdict Judge::Get() {
  const std::string foreign = ForeignTextGet(_after);
  if (!_after.AnyExists())
    Note("the queue has just been removed");
  else if (!IsTheSame())
    Note("the queue is being made or removed: look again");
  else if (!foreign.empty() && foreign == ForeignTextGet(_before))
    Trouble(foreign + ": another program uses the key, or it was overwritten; use another id, or " +
            Advice(REMOVE + FORCE));
  else if (!_after.segment.Exists())
    LeftOversJudge();
  else
    QueueJudge();
  Verdict verdict;
  verdict.isTrouble = !_troubles.empty();
  verdict.lines = verdict.isTrouble ? _troubles : _notes;
  return verdict;
}

}  // namespace

const char* SegmentFaultText(SegmentFault fault) {
  switch (fault) {
  case SegmentFault::NONE:
    break;
  case SegmentFault::SEGMENT_TOO_SMALL:
    return "too small for a queue";
  case SegmentFault::LENGTH_BEYOND_SEGMENT:
    return "its length word says more than it has";
  case SegmentFault::LENGTH_OF_NO_QUEUE:
    return "its length word says what no queue has";
  }
  return nullptr;
}

std::string ForeignTextGet(const QueueLook& look) {
  if (const char* fault = SegmentFaultText(look.segment.fault); fault != nullptr)
    return std::string("the segment is no queue's (") + fault + ")";
  const std::string semaphore = SetForeignText("semaphore", look.semaphore);
  return semaphore.empty() ? SetForeignText("mutex", look.mutex) : semaphore;
}

bool ReceiverSleepsBesideMessages(const QueueLook& look) {
  return look.segment.messages.count > 0 && look.semaphore.waiting > 0 && look.semaphore.value == 0;
}

MutexHold MutexHoldGet(const SetLook& before, const SetLook& after) {
  if (!after.Exists() || after.error != 0 || after.value != 0)
    return MutexHold::FREE;
  // The look made sure that it is still this one's: no second look is needed.
  if (after.IsTaken() && after.process.state == ProcessState::GONE)
    return MutexHold::DEAD;
  if (before.id != after.id || before.value != 0 || before.process.pid != after.process.pid ||
      before.taken != after.taken || before.set != after.set)
    return MutexHold::BUSY;
  if (!after.IsTaken())
    return MutexHold::UNTAKEN;
  switch (after.process.state) {
  case ProcessState::STOPPED:
    return MutexHold::STOPPED;
  case ProcessState::UNKNOWN:
    return MutexHold::UNSEEN;
  default:
    return MutexHold::HELD;
  }
}

Verdict VerdictGet(int id, const QueueLook& before, const QueueLook& after) {
  return Judge(id, before, after).Get();
}

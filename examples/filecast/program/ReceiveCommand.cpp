#include "program/ReceiveCommand.h"

#include "program/Signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace {

constexpr double WATCH_PERIOD = 0.1;
constexpr int INTERRUPT_COUNT = 5;  // windows that tell a sender; some of them can be lost
constexpr int FEW_DATAGRAMS = 32;
constexpr timespec GATHER_PAUSE{0, 50'000};

// A receiver that sleeps at the socket is woken by each datagram, which takes longer than to read
// it, and the sender's processor does the waking. So it sleeps beside the socket, for as long as
// the next few datagrams need to arrive at full rate; the answers have gone out before. That is far
// less than a buffer holds, and an answer comes later by less than a round of the sender's rate.
void SamplesGather() { nanosleep(&GATHER_PAUSE, nullptr); }

int FolderOpen(const std::string& path) {
  const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0 || faccessat(folder, ".", W_OK | X_OK, 0) != 0) {
    const std::string text = path + ": " + std::strerror(errno);
    if (folder >= 0)
      close(folder);
    throw Failure(ExitCode::FOLDER_UNUSABLE, text);
  }
  return folder;
}

std::string IdText(std::uint32_t session, std::uint32_t receiver) {
  char text[24];
  std::snprintf(text, sizeof text, "%08x-%08x", static_cast<unsigned int>(session),
                static_cast<unsigned int>(receiver));
  return text;
}

}  // namespace

ReceiveCommand::ReceiveCommand(const Options& options, PeerList* peers)
    : _options(options), _id(std::random_device()()), _progress("received"),
      _endpoints(options.group, options.at, options.from), _loss(options.drop, options.seed),
      _inbox(&_endpoints.DataGet(), peers, &_loss,
             [this](VORNCDRStream* stream, const Header& header, const AddressPort& source) {
               return DatagramHandle(stream, header, source);
             }),
      _buffer() {
  _slots.reserve(FILE_CAPACITY);
  _loop.EventAdd(WATCH_PERIOD, [this](const VORNNtpTime& now) { SendersWatch(now); });
  _folder = FolderOpen(options.folder);
}

ReceiveCommand::~ReceiveCommand() {
  _slots.clear();  // removes partial files through the folder's descriptor
  if (_folder >= 0)
    close(_folder);
}

ExitCode ReceiveCommand::Run() {
  _progress.Say("waiting at " +
                AddressPortText(_options.at.address != 0 ? _options.at : _options.group));
  _begin = _loop.NowGet();
  _loop.Run(
      _endpoints.DataGet(),
      [this](const VORNNtpTime& now) {
        _now = now;
        const int count = _inbox.DatagramsRead();
        FilesCheck();
        if (count > 0 && count < FEW_DATAGRAMS)
          SamplesGather();
      },
      [this] { return _filesOver >= _options.files; });
  _progress.Clear();
  if (IsInterrupted()) {
    InterruptSay();
    throw Failure(ExitCode::INTERRUPTED, "interrupted; unfinished files are removed");
  }
  CountsSay();
  if (_failure)
    throw Failure(*_failure);
  return ExitCode::OK;
}

Inbox::Verdict ReceiveCommand::DatagramHandle(VORNCDRStream* stream, const Header& header,
                                              const AddressPort& source) {
  if (header.kind == Kind::HEARTBEAT)
    return HeartbeatHandle(stream, header, source);
  // The same sender may be heard through two interfaces, from two addresses. One is enough.
  Slot* slot = SlotFind(header.session);
  IncomingFile* incoming = slot != nullptr ? slot->file.get() : nullptr;
  if (incoming == nullptr || incoming->SenderGet() != source.address || header.kind == Kind::WINDOW)
    return Inbox::Verdict::FOREIGN;
  if (header.kind == Kind::SAMPLE) {
    const char* bytes = nullptr;
    int length = 0;
    if (!SampleRead(stream, &bytes, &length))
      return Inbox::Verdict::GARBLED;
    incoming->SampleAdd(header.number, bytes, length, _now);
  } else {
    ExitCode reason = ExitCode::OK;
    if (!EndRead(stream, &reason))
      return Inbox::Verdict::GARBLED;
    incoming->EndNote(reason, _now);
  }
  return Inbox::Verdict::TAKEN;
}

Inbox::Verdict ReceiveCommand::HeartbeatHandle(VORNCDRStream* stream, const Header& header,
                                               const AddressPort& source) {
  if (!HeartbeatRead(stream, header, &_heartbeat))
    return Inbox::Verdict::GARBLED;
  Slot* slot = SlotFind(header.session);
  if (slot == nullptr)
    slot = SlotMake(header, _heartbeat.file, source.address);
  if (slot == nullptr || slot->file->SenderGet() != source.address)
    return Inbox::Verdict::FOREIGN;
  if (!slot->file->FileIs(_heartbeat.file))
    return Inbox::Verdict::GARBLED;
  if (slot->file->IsOver())
    return Inbox::Verdict::TAKEN;
  slot->heard = header;
  slot->heartbeat = _heartbeat.count;
  slot->answerTo = {source.address, _heartbeat.answerPort};
  if (_heartbeat.checksum)
    slot->file->ChecksumNote(*_heartbeat.checksum, _now);
  slot->file->HeartbeatAnswer(header.number, _now, &_window);
  WindowSend(*slot);
  return Inbox::Verdict::TAKEN;
}

// The senders are not left to wait for a receiver that is gone.
void ReceiveCommand::InterruptSay() {
  for (const Slot& slot : _slots) {
    if (slot.file->StateGet() != TransferState::RECEIVING)
      continue;
    slot.file->Interrupt(_loop.NowGet());
    slot.file->HeartbeatAnswer(slot.heard.number, _loop.NowGet(), &_window);
    for (int i = 0; i < INTERRUPT_COUNT; ++i)
      WindowSend(slot);
  }
}

ReceiveCommand::Slot* ReceiveCommand::SlotFind(std::uint32_t session) {
  const auto found = std::find_if(_slots.begin(), _slots.end(), [session](const Slot& slot) {
    return slot.file->SessionGet() == session;
  });
  return found != _slots.end() ? &*found : nullptr;
}

// None while every slot holds a file that is not over: the sender will be heard again.
ReceiveCommand::Slot* ReceiveCommand::SlotMake(const Header& header, const FileDescription& file,
                                               unsigned int sender) {
  if (_slots.size() >= FILE_CAPACITY) {
    const auto old =
        std::find_if(_slots.begin(), _slots.end(), [](const Slot& slot) { return slot.isTold; });
    if (old == _slots.end())
      return nullptr;
    _slots.erase(old);
  }
  _progress.Say("receiving " + file.name + ", " + MegabytesText(file.size) + ", from " +
                AddressText(sender));
  Slot slot;
  slot.file = std::make_unique<IncomingFile>(header.session, file, sender, _folder,
                                             IdText(header.session, _id), _now);
  _slots.push_back(std::move(slot));
  return &_slots.back();
}

// An answer that is lost, or that the system does not take, is made good by the next one.
void ReceiveCommand::WindowSend(const Slot& slot) {
  Header answer = slot.heard;
  answer.kind = Kind::WINDOW;
  answer.number = _window.lead;
  const std::optional<Failure>& failure = slot.file->FailureGet();
  const WindowHead head{_id,
                        slot.heartbeat,
                        slot.file->StateGet(),
                        failure ? failure->code : ExitCode::OK,
                        slot.file->ArrivalsGet(),
                        _endpoints.RoomGet()};
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  if (WindowWrite(&stream, answer, head, _window))
    _endpoints.Answer(slot.answerTo, &stream);
}

void ReceiveCommand::SendersWatch(const VORNNtpTime& now) {
  for (Slot& slot : _slots) {
    slot.file->SilenceCheck(now, VORNNtpTime::FromSeconds(_options.patience));
    const FileDescription& file = slot.file->WindowGet().FileGet();
    if (slot.file->StateGet() == TransferState::RECEIVING && _slots.size() == 1)
      _progress.Show(file.name, slot.file->BytesGet(), file.size, now.SecondsGet());
  }
  FilesCheck();
  if (_slots.empty() && _options.wait > 0 &&
      now - _begin > VORNNtpTime::FromSeconds(_options.wait)) {
    CountsSay();
    throw Failure(ExitCode::SENDER_SILENT, "no sender was heard");
  }
}

void ReceiveCommand::FilesCheck() {
  for (Slot& slot : _slots) {
    if (slot.isTold || !slot.file->IsOver())
      continue;
    slot.isTold = true;
    ++_filesOver;
    FileTell(*slot.file);
  }
}

void ReceiveCommand::FileTell(const IncomingFile& incoming) {
  const FileDescription& file = incoming.WindowGet().FileGet();
  if (!incoming.FailureGet()) {
    _progress.Say("wrote " + file.name + ", " + ThroughputText(file.size, incoming.SecondsGet()));
    return;
  }
  if (!_failure)
    _failure = incoming.FailureGet();
  _progress.Say("gave up " + file.name + " after " +
                ThroughputText(incoming.BytesGet(), incoming.SecondsGet()));
}

void ReceiveCommand::CountsSay() {
  const Inbox::Counts& counts = _inbox.CountsGet();
  char text[200];
  std::snprintf(text, sizeof text,
                "datagrams: %llu taken, %llu refused, %llu garbled, %llu foreign, %llu dropped on "
                "purpose",
                static_cast<unsigned long long>(counts.taken),
                static_cast<unsigned long long>(counts.refused),
                static_cast<unsigned long long>(counts.garbled),
                static_cast<unsigned long long>(counts.foreign),
                static_cast<unsigned long long>(counts.dropped));
  _progress.Say(text);
}

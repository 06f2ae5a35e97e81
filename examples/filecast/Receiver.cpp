#include "Receiver.h"

#include "Duration.h"
#include "Signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace {

constexpr double WATCH_PERIOD = 0.1;

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

Receiver::Receiver(const Options& options, Peers* peers)
    : _options(options), _id(std::random_device()()), _progress("received"), _endpoints(options),
      _loss(options.drop, options.seed),
      _inbox(&_endpoints.DataGet(), peers, &_loss,
             [this](VORNCDRStream* stream, const Header& header, const AddressPort& source) {
               return DatagramTake(stream, header, source);
             }),
      _buffer() {
  _slots.reserve(SESSION_CAPACITY);
  _loop.EventAdd(WATCH_PERIOD, [this](const VORNNtpTime& now) { WatchTake(now); });
  _folder = FolderOpen(options.folder);
}

Receiver::~Receiver() {
  _slots.clear();  // removes partial files through the folder's descriptor
  if (_folder >= 0)
    close(_folder);
}

ExitCode Receiver::Run() {
  _progress.Say("waiting at " +
                AddressPortText(_options.at.address != 0 ? _options.at : _options.group));
  _begin = _loop.NowGet();
  _loop.Run(
      _endpoints.DataGet(),
      [this](const VORNNtpTime& now) {
        _now = now;
        _inbox.Take();
        SessionsCheck();
      },
      [this] { return _filesOver >= _options.files; });
  _progress.Clear();
  if (IsInterrupted())
    throw Failure(ExitCode::INTERRUPTED, "interrupted; what was not whole is removed");
  CountsSay();
  if (_failure)
    throw Failure(*_failure);
  return ExitCode::OK;
}

Inbox::Verdict Receiver::DatagramTake(VORNCDRStream* stream, const Header& header,
                                      const AddressPort& source) {
  if (header.kind == Kind::HEARTBEAT)
    return HeartbeatTake(stream, header, source);
  // The same sender may be heard through two interfaces, from two addresses. One is enough.
  ReceiverSession* session = SessionFind(header.session);
  if (session == nullptr || session->SenderGet() != source.address || header.kind == Kind::WINDOW)
    return Inbox::Verdict::FOREIGN;
  if (header.kind == Kind::SAMPLE) {
    const char* bytes = nullptr;
    int length = 0;
    if (!SampleRead(stream, &bytes, &length))
      return Inbox::Verdict::GARBLED;
    session->SampleTake(header.number, bytes, length, _now);
  } else {
    bool complete = false;
    if (!EndRead(stream, &complete))
      return Inbox::Verdict::GARBLED;
    session->EndTake(_now);
  }
  return Inbox::Verdict::TAKEN;
}

Inbox::Verdict Receiver::HeartbeatTake(VORNCDRStream* stream, const Header& header,
                                       const AddressPort& source) {
  if (!HeartbeatRead(stream, header, &_heartbeat))
    return Inbox::Verdict::GARBLED;
  ReceiverSession* session = SessionFind(header.session);
  if (session == nullptr)
    session = SessionMake(header, _heartbeat.file, source.address);
  if (session == nullptr || session->SenderGet() != source.address)
    return Inbox::Verdict::FOREIGN;
  if (!session->FileIs(_heartbeat.file))
    return Inbox::Verdict::GARBLED;
  if (session->IsOver())
    return Inbox::Verdict::TAKEN;
  session->HeartbeatTake(header.number, _now, &_window);
  WindowSend(header, _heartbeat.count, {source.address, _heartbeat.answerPort}, *session);
  return Inbox::Verdict::TAKEN;
}

ReceiverSession* Receiver::SessionFind(std::uint32_t id) {
  for (Slot& slot : _slots)
    if (slot.session->IdGet() == id)
      return slot.session.get();
  return nullptr;
}

// None while every place is taken by a session that is not over: the sender will be heard again.
ReceiverSession* Receiver::SessionMake(const Header& header, const FileDescription& file,
                                       unsigned int sender) {
  if (_slots.size() >= SESSION_CAPACITY) {
    const auto old =
        std::find_if(_slots.begin(), _slots.end(), [](const Slot& slot) { return slot.isTold; });
    if (old == _slots.end())
      return nullptr;
    _slots.erase(old);
  }
  _progress.Say("receiving " + file.name + ", " + MegabytesText(file.size) + ", from " +
                AddressText(sender));
  Slot slot;
  slot.session = std::make_unique<ReceiverSession>(header.session, file, sender, _folder,
                                                   IdText(header.session, _id), _now);
  _slots.push_back(std::move(slot));
  return _slots.back().session.get();
}

// An answer that is lost, or that the system does not take, is made good by the next one.
void Receiver::WindowSend(const Header& header, std::uint32_t heartbeat, const AddressPort& to,
                          const ReceiverSession& session) {
  Header answer = header;
  answer.kind = Kind::WINDOW;
  answer.number = _window.lead;
  const Window window{_id, heartbeat, session.StateGet()};
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  if (WindowWrite(&stream, answer, window, _window))
    _endpoints.Answer(to, &stream);
}

void Receiver::WatchTake(const VORNNtpTime& now) {
  for (Slot& slot : _slots) {
    slot.session->SilenceCheck(now, DurationOf(_options.patience));
    if (slot.session->StateGet() == ReceiverState::RECEIVING && _slots.size() == 1)
      _progress.Show(static_cast<std::uint64_t>(slot.session->LogicGet().LeadGet() - 1),
                     static_cast<std::uint64_t>(slot.session->LogicGet().FileGet().SampleCount()));
  }
  SessionsCheck();
  if (_slots.empty() && _options.wait > 0 && now - _begin > DurationOf(_options.wait)) {
    CountsSay();
    throw Failure(ExitCode::SENDER_SILENT, "no sender was heard");
  }
}

void Receiver::SessionsCheck() {
  for (Slot& slot : _slots) {
    if (slot.isTold || !slot.session->IsOver())
      continue;
    slot.isTold = true;
    ++_filesOver;
    SessionTell(*slot.session);
  }
}

void Receiver::SessionTell(const ReceiverSession& session) {
  const FileDescription& file = session.LogicGet().FileGet();
  if (!session.FailureGet()) {
    _progress.Say("wrote " + file.name + ", " + ThroughputText(file.size, session.SecondsGet()));
    return;
  }
  if (!_failure)
    _failure = session.FailureGet();
  _progress.Say("gave up " + file.name);
}

void Receiver::CountsSay() {
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

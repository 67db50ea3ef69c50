// SMTPCls: delivers one message to one recipient in one session with one mail server (RFC 5321),
// given or found by DNS, and keeps a transcript that tells why a delivery failed.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. SMTP blocks, keeping the loop alive.
#pragma once

#include <netro/Export.h>
#include <netro/SMTPSettings.h>

#include <cstdint>
#include <memory>
#include <string>

namespace netro {

class SocketModule;
struct CallState;
struct SmtpEvents;
struct SmtpResult;

/// The steps of a session. Values from 96 on are result codes as well.
enum SMTPStepEnum : std::int32_t {
  SMTP_STEP_NOERROR = 0,
  SMTP_STEP_UNDEFINED = 1,
  SMTP_STEP_SOCKS = 5,
  SMTP_STEP_DNS = 10,
  SMTP_STEP_CONNECT = 15,
  SMTP_STEP_HELO = 20,
  SMTP_STEP_STARTTLS = 25,
  SMTP_STEP_AUTH = 27,
  SMTP_STEP_MAILFROM = 30,
  SMTP_STEP_RCPTTO = 40,
  SMTP_STEP_DATA = 50,
  SMTP_STEP_SENDDATA = 60,
  SMTP_STEP_QUIT = 70,
  SMTP_STEP_DONE = 80,
  SMTP_STEP_SOCKETERROR = 90,
  SMTP_STEP_INITSOCKET = 91,
  SMTP_STEP_EXTRA_VALUE = 92,
  SMTP_STEP_PRECHECK = 93,
  SMTP_STEP_AUTODNS = 94,
  SMTP_AUTODNSOK = 96,
  SMTP_INITERROR = 97,
  SMTP_AUTODNSERROR = 98,
  SMTP_TIMEOUT = 99,
  SMTP_CANCELED = 9999,
};

/// Receives the events of a session. Everything is allowed inside, deleting the object that raised
/// them included, which ends the session, as an exception does (see SocketClsEvents).
class NETRO_EXPORT SMTPClsEvents {
 public:
  virtual ~SMTPClsEvents() = default;

  /// A line of the transcript, without its line end, as it is added.
  virtual void DisplayProtocol(const std::string& LastResult) { (void)LastResult; }
  /// Bytes of the prepared message sent so far and in all; after each 4,096 bytes.
  virtual void DataStatus(std::int32_t SendBytes, std::int32_t CompleteBytes) {
    (void)SendBytes, (void)CompleteBytes;
  }
};

class NETRO_EXPORT SMTPCls : public SMTPSettings {
 public:
  SMTPCls();
  ~SMTPCls();
  SMTPCls(const SMTPCls&) = delete;
  SMTPCls& operator=(const SMTPCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  SMTPClsEvents* Events() const { return events_; }
  void Events(SMTPClsEvents* sink) { events_ = sink; }

  /// Runs a session: greeting, HELO, MAIL FROM, RCPT TO, DATA, the message, QUIT. `From` and
  /// `RcptTo` are one bare address each; an empty `From` is "admin@" and SenderHostName. `Data` is
  /// the whole message, its lines ended by CR LF, and must stay as it is until this returns; lone
  /// dots are doubled (RFC 5321, section 4.5.2).
  /// True when all of it was accepted. Otherwise StepID, Result and ResultMessage tell why:
  ///   93, 97    an argument that would break the protocol; nothing was sent
  ///   94, 96    no mail exchanger; LastBuffer is the transcript
  ///   5         the proxy: its error number, 9999, or 10002
  ///   91, 97    the connection could not be begun
  ///   90        the connection failed: the socket's number; 10040 a reply of more than 1 MiB
  ///   15 ... 70 the reply code that SMTPSuccess does not list, 99 nothing in time, 9999 cancelled
  /// Waits are counted in seconds of the local day; one that passes midnight ends ten minutes after
  /// its time-out.
  /// While a session of this object is running another is refused: false, and nothing is changed.
  bool SMTP(const std::string& From, const std::string& RcptTo, const std::string& Data);

  /// What has been received since the last command, or the text of the error.
  const std::string& LastBuffer() const;
  void LastBuffer(std::string value);
  /// The transcript, its lines separated by CR LF.
  std::string Protocol() const;
  /// The step that a session ended at (SMTP_STEP_DONE after success), its code (0 after success)
  /// and the reply or text.
  std::int32_t StepID() const;
  std::int32_t Result() const;
  const std::string& ResultMessage() const;

  /// The name of a step; empty where there is none.
  std::string GetSMTPStepName(std::int32_t SMTPStepID) const;
  /// The exchanger's name and address, from the line of a transcript that tells of the lookup;
  /// empty where there is none.
  std::string GetGateWayNameFromProtocol(const std::string& Protocol) const;
  std::string GetGatewayIPFromProtocol(const std::string& Protocol) const;

  /// Ends the running session with 9999. Any thread, signal-safe.
  void StopWaiting();
  /// The same; the connection is closed at once.
  void Kill();

 private:
  SmtpEvents OwnEvents();
  void KeepNames(const SMTPValues& found);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::shared_ptr<SmtpResult> result_;
  SMTPClsEvents* events_ = nullptr;
};

}  // namespace netro

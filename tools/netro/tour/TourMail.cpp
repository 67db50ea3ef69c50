// The part of the tour about mail, with its server: a message sent to a server, to the exchanger
// that DNS names and through a proxy; recipients that are refused; an address that is checked.

#include <netro/SendMailCls.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "terminal/Encoding.h"
#include "terminal/Stopwatch.h"
#include "tour/TourDnsServer.h"
#include "tour/TourSections.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

constexpr const char* kSender = "Aladdin <aladdin@agrabah.tour>";
constexpr const char* kRecipient = "jasmine@bazaar.tour";
constexpr const char* kUnknown = "jafar@bazaar.tour";
constexpr std::int32_t kFatal = 3011;

/// Takes messages for everybody but one (RFC 5321).
class MailPeer : public TourPeer {
 public:
  explicit MailPeer(TourJournal& journal) : TourPeer("SMTP server", journal) {}

  void Accept(std::int32_t requestId) override {
    TourPeer::Accept(requestId);
    Send("220 post.bazaar.tour is ready\r\n");
  }

 private:
  void Receive() override {
    const std::string_view end = inMessage_ ? "\r\n.\r\n" : "\r\n";
    const std::size_t at = input_.find(end);
    if (at == input_.npos) return;
    const std::string taken = input_.substr(0, at + end.size());
    input_.erase(0, taken.size());
    Record(taken);
    if (inMessage_) {
      inMessage_ = false;
      Send("250 the message is on its way\r\n");
    } else {
      Obey(taken);
    }
  }

  void Obey(const std::string& command) {
    if (command == "DATA\r\n") {
      inMessage_ = true;
      Send("354 go on, a lone dot ends it\r\n");
    } else if (command == "QUIT\r\n") {
      Send("221 farewell\r\n");
      Close();
    } else {
      const bool refused =
          command.starts_with("RCPT TO:") && command.find(kUnknown) != command.npos;
      Send(refused ? "550 nobody of that name\r\n" : "250 as you wish\r\n");
    }
  }

  bool inMessage_ = false;
};

/// The servers of this part, and a message that is addressed to one of them.
class MailTour {
 public:
  explicit MailTour(TourReport& report) : report_(report) {}

  void Run() {
    SendToServer();
    SendToExchanger();
    SendToSeveral();
    SendThroughProxy();
    CheckAddress();
  }

 private:
  void Prepare(SendMailCls& mail) const {
    mail.SenderHostName("lamp.agrabah.tour");
    mail.ReceiverHostName("127.0.0.1");
    mail.Port(server_.Port());
    mail.ProtocolLevel(pl_standard);
    mail.NewTextMsg("Three wishes", kSender, kRecipient, "Meet me at the palace.");
  }

  void Add(const char* title, const std::string& call, const std::string& outcome, bool good,
           const Stopwatch& watch) {
    report_.Add({title, call, journal_.Take(), outcome, good, watch.Seconds()});
  }

  std::string At() const { return " at 127.0.0.1:" + std::to_string(server_.Port()); }

  static std::string OutcomeText(const SendMailCls& mail) {
    std::string text;
    for (const RecipientOutcome& outcome : mail.Outcomes()) {
      text += (text.empty() ? "" : "; ") + outcome.Address;
      text += outcome.Accepted ? " accepted"
                               : " refused at " + SMTPCls().GetSMTPStepName(outcome.StepID) +
                                     ", class " + std::to_string(outcome.ResultClass);
    }
    return text;
  }

  void SendToServer() {
    SendMailCls mail;
    Prepare(mail);
    mail.AddAttachmentFromBuffer("Fly to the palace at dawn.\n", "carpet.txt");
    const Stopwatch watch;
    const bool good = mail.SendMail();
    Add("A message with an attachment", "NewTextMsg, AddAttachmentFromBuffer, SendMail" + At(),
        OutcomeText(mail), good && journal_.WasSent("filename=\"carpet.txt\""), watch);
  }

  void SendToExchanger() {
    SendMailCls mail;
    Prepare(mail);
    mail.ReceiverHostName("");
    mail.DNSURL("127.0.0.1:" + std::to_string(names_.UdpPort()));
    const Stopwatch watch;
    const bool good = mail.SendMail();
    const std::string transcript = mail.Outcomes().front().Protocol;
    Add("Straight to the mail exchanger of the recipient's domain",
        "SendMail without a ReceiverHostName, Port " + std::to_string(server_.Port()),
        OutcomeText(mail) + "; the transcript begins " +
            transcript.substr(0, transcript.find('\r')),
        good && transcript.find("] post.bazaar.tour => 127.0.0.1") != transcript.npos, watch);
  }

  void SendToSeveral() {
    SendMailCls mail;
    Prepare(mail);
    mail.NewTextMsg("Three wishes", kSender, kUnknown, "Be gone.", "", kRecipient);
    const Stopwatch watch;
    const bool all = mail.SendMail();
    const auto& outcomes = mail.Outcomes();
    const bool good = !all && outcomes.size() == 2 && outcomes[0].ResultClass == kFatal &&
                      outcomes[1].Accepted && !journal_.WasSent("BCC");
    Add("A recipient that is refused, and one in BCC",
        "SendMail to " + std::string(kUnknown) + ", BCC " + kRecipient, OutcomeText(mail), good,
        watch);
  }

  void SendThroughProxy() {
    SendMailCls mail;
    Prepare(mail);
    mail.ReceiverHostName(kTourHost);
    mail.Simulation(true);
    mail.ProxyType(SMTPProxySocks5Auth);
    mail.ProxyURL("127.0.0.1");
    mail.ProxyPort(proxy_.Port());
    mail.ProxyUser(kTourUser);
    mail.ProxyPassword(kTourPassword);
    mail.ProxyUseRemoteDNS(true);
    const Stopwatch watch;
    const bool good = mail.SendMail();
    Add("A rehearsal, through a SOCKS 5 proxy, which looks up the server's name",
        "SendMail with Simulation, through SMTPProxySocks5Auth 127.0.0.1:" +
            std::to_string(proxy_.Port()),
        OutcomeText(mail), good && !journal_.WasSent("DATA"), watch);
  }

  void CheckAddress() {
    SendMailCls mail;
    Prepare(mail);
    const Stopwatch watch;
    const bool taken = mail.CheckeMailAddress(kUnknown, kSender);
    Add("Does the server know an address? Asked without sending a message",
        "CheckeMailAddress(\"" + std::string(kUnknown) + "\")" + At(),
        OnOneLine(mail.ResultMessage()),
        !taken && mail.Result() == 550 && !journal_.WasSent("DATA"), watch);
  }

  TourReport& report_;
  TourJournal journal_;
  const TourServer server_{[this] { return std::make_unique<MailPeer>(journal_); }};
  const TourServer proxy_{SocksProxy(journal_)};
  const TourDnsServer names_{journal_};
};

}  // namespace

void TourMail(TourReport& report) { MailTour(report).Run(); }

}  // namespace netro::tool

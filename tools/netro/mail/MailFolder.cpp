// The folder options of "netro mail".

#include "mail/MailFolder.h"

#include <netro/MailSpool.h>

#include <nlohmann/json.hpp>
#include <string>

#include "mail/MailDisplay.h"
#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/Interrupt.h"
#include "terminal/IsoTime.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

Json TimeOrNull(Date date) { return date == 0 ? Json() : Json(IsoTime(date)); }

Json ErrorOf(std::int32_t result, const std::string& text) {
  return {{"number", result}, {"text", result == 0 ? "" : text}};
}

std::string StateName(SpoolStateEnum state) {
  constexpr const char* kNames[] = {"pending", "delivered", "failed", "may have arrived"};
  return kNames[state];
}

Json ToJson(const SpooledRecipient& recipient) {
  return {{"address", recipient.Address},
          {"state", StateName(recipient.State)},
          {"tries", recipient.Tries},
          {"class", recipient.ResultClass},
          {"result", recipient.Result},
          {"message", recipient.Answer},
          {"last_try", TimeOrNull(recipient.LastTry)},
          {"next_try", TimeOrNull(recipient.NextTry)}};
}

std::string WhenTried(const SpooledRecipient& recipient) {
  std::string text =
      recipient.State == SpoolPending && recipient.LastTry == 0 ? "not tried yet" : "";
  if (!recipient.Answer.empty()) text = OnOneLine(recipient.Answer);
  if (recipient.State != SpoolPending || recipient.LastTry == 0) return text;
  return text + (text.empty() ? "" : "; ") + "next try " + IsoTime(recipient.NextTry);
}

/// Tells of each event as it comes, or keeps it for the JSON object.
class FolderEvents : public MailSpoolEvents {
 public:
  explicit FolderEvents(bool json) : json_(json) {}

  Json list = Json::array();
  bool good = true;

 private:
  void Delivered(const std::string& Id, const SpooledRecipient& Recipient) override {
    Tell("delivered", Style::Green, Id, Recipient);
  }
  void Deferred(const std::string& Id, const SpooledRecipient& Recipient) override {
    good = false;
    Tell("deferred", Style::Red, Id, Recipient);
  }
  void Failed(const std::string& Id, const SpooledRecipient& Recipient) override {
    good = false;
    Tell(StateName(Recipient.State), Style::Red, Id, Recipient);
  }
  void Bounced(const std::string& Id, const std::string& BounceId) override {
    if (json_) {
      list.push_back({{"event", "bounced"}, {"id", Id}, {"bounce", BounceId}});
    } else {
      Print(Id + ": returned to its sender by " + BounceId + "\n");
    }
  }
  void SetAside(const std::string& Path) override {
    good = false;
    if (json_) {
      list.push_back({{"event", "set aside"}, {"path", Path}});
    } else {
      Print(OnOneLine(Path) + ": was no message of a spool, and has this name now\n");
    }
  }

  void Tell(const std::string& event, Style style, const std::string& id,
            const SpooledRecipient& recipient) {
    if (json_) {
      Json object = {{"event", event}, {"id", id}};
      object.update(ToJson(recipient));
      list.push_back(object);
      return;
    }
    const std::string more = recipient.State == SpoolDelivered ? "" : "; " + WhenTried(recipient);
    Print(id + " " + OnOneLine(recipient.Address) + ": " + Styled(style, event) + more + "\n");
    Flush();
  }

  const bool json_;
};

void Explain(const std::string& what, const MailSpool& spool) {
  if (spool.Result() != 0) {
    ShowMessage(FailureText(what, spool.Result(), spool.ResultMessage()));
  }
}

void PrintMails(const std::vector<SpooledMail>& mails) {
  for (const SpooledMail& mail : mails) {
    const std::string from = mail.Sender.empty() ? "no sender" : OnOneLine(mail.Sender);
    Print(Styled(Style::Bold, mail.Id) + "  " + IsoTime(mail.Created) + "  " +
          std::to_string(mail.Size) + " bytes  from " + from + "\n");
    for (const SpooledRecipient& recipient : mail.Recipients) {
      Print("  " + OnOneLine(recipient.Address) + ": " + StateName(recipient.State) + ", " +
            std::to_string(recipient.Tries) + (recipient.Tries == 1 ? " try; " : " tries; ") +
            WhenTried(recipient) + "\n");
    }
  }
}

Json ToJson(const SpooledMail& mail) {
  Json object = {{"id", mail.Id},
                 {"from", mail.Sender},
                 {"created", TimeOrNull(mail.Created)},
                 {"next_try", TimeOrNull(mail.NextTry)},
                 {"message_bytes", mail.Size},
                 {"recipients", Json::array()}};
  for (const auto& recipient : mail.Recipients) object["recipients"].push_back(ToJson(recipient));
  return object;
}

}  // namespace

int SpoolMail(SendMailCls& mail, const MailOptions& options) {
  const bool good = mail.SpoolMsg(options.spoolFolder);
  if (options.json) {
    PrintObject({{"ok", good},
                 {"id", good ? mail.SpoolID() : ""},
                 {"error", ErrorOf(mail.Result(), mail.ResultMessage())}});
  } else if (good) {
    Print(mail.SpoolID() + "\n");
  }
  if (!good) {
    ShowMessage(FailureText("nothing was put into the spool", mail.Result(), mail.ResultMessage()));
  }
  return good ? Success : QueryFailed;
}

int DeliverFolder(const MailOptions& options) {
  MailSpool spool;
  spool.Folder(options.deliverFolder);
  UseMailConnection(spool.Mail(), options.connection);
  MailDisplay display(options.transcript && !options.json);
  spool.Mail().Events(&display);
  spool.Mail().ProtocolLevel(options.transcript ? pl_standard : pl_Off);
  FolderEvents events(options.json);
  spool.Events(&events);
  const bool done = [&] {
    const InterruptGuard guard(spool);
    return spool.DeliverDue(options.all);
  }();
  const bool good = done && events.good;
  if (!done) Explain("not all was tried", spool);
  if (options.json) {
    const Json error = ErrorOf(spool.Result(), spool.ResultMessage());
    PrintObject({{"ok", good},
                 {"error", error},
                 {"events", events.list},
                 {"next_try", TimeOrNull(spool.NextTry())}});
  }
  return good ? Success : QueryFailed;
}

int ListMailFolder(const MailOptions& options) {
  MailSpool spool;
  spool.Folder(options.listFolder);
  const std::vector<SpooledMail> mails = spool.List();
  const bool good = spool.Result() == 0;
  if (options.json) {
    Json list = Json::array();
    for (const SpooledMail& mail : mails) list.push_back(ToJson(mail));
    PrintObject({{"ok", good},
                 {"error", ErrorOf(spool.Result(), spool.ResultMessage())},
                 {"messages", list}});
  } else {
    PrintMails(mails);
  }
  Explain("the list is not complete", spool);
  return good ? Success : QueryFailed;
}

}  // namespace netro::tool

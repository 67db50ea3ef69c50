// Delivers one message to the recipients of one server or one domain: all exchangers and addresses
// in their order, one session for all recipients. On the caller's stack, under its mark; touches
// nothing that an event may delete.
#pragma once

#include <netro/SendMailCls.h>

#include <memory>
#include <string>
#include <vector>

#include "mail/MailRoute.h"
#include "mail/SmtpSession.h"

namespace netro {

/// A session that waits for the next call.
struct KeptSession {
  std::string route;  // the server's name, or the domain
  std::string host;
  SMTPValues settings;
  ProxyValues proxy;
  std::unique_ptr<SmtpSession> session;
  TimePoint since;

  bool Fits(const std::string& wantedRoute, const SmtpOrder& order) const;
};

/// A recipient with what the sessions leave for it.
struct MailRecipient {
  SmtpRecipient smtp;
  std::string protocol;
  std::vector<DeliveryTry> tries;
  bool connected = false;  // in one of them
};

/// What all groups of recipients of a call share.
struct DeliveryTask {
  SmtpOrder order;  // `from` is the envelope's sender, empty or not
  SmtpData& message;
  const CancelMark& mark;
  SmtpEvents events;
  bool keep = false;
  std::unique_ptr<KeptSession> kept;  // of the call before, and for the next
};

class MailDelivery {
 public:
  /// `domain` counts when the settings name no server.
  MailDelivery(DeliveryTask& task, std::string domain, std::vector<MailRecipient*> recipients);

  void Run();

 private:

  void TryHosts(const std::vector<std::string>& hosts);
  void TryHost(const std::string& host, bool isLast);
  std::string Try(const std::string& host, const std::string& address);
  bool TryKept();
  bool Use(SmtpSession& session, const std::vector<MailRecipient*>& waiting);
  void Close(std::unique_ptr<SmtpSession> session, const std::string& host,
             const std::vector<MailRecipient*>& used);
  void Note(SmtpSession& session, const std::string& host,
            const std::vector<MailRecipient*>& waiting);
  std::vector<MailRecipient*> Waiting() const;

  DeliveryTask& task_;
  const std::string domain_;
  const std::vector<MailRecipient*> recipients_;
  SMTPValues settings_;  // of the sessions
  std::string route_;
  std::vector<std::string> unprotected_;  // hosts whose protection failed
};

}  // namespace netro

// The mails of a watcher's reports. Reports that come within a few seconds share one mail. It goes
// into a spool folder, from which it is sent, again and again while its server puts it off. Tasks
// of the loop do this; one of them is there while any mail waits. On its loop's thread.
#pragma once

#include <netro/Task.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "diag/WatchNotes.h"
#include "platform/Clock.h"

namespace netro {

class MailSpool;
struct WatchDelivery;

/// What a report adds to a mail.
struct WatchMailPart {
  std::string word;  // "down", "up" ...: what the host is now
  std::string subject;
  std::string text;
};

class WatchMails : public std::enable_shared_from_this<WatchMails> {
 public:
  /// Without a folder the mails are kept in one that goes with them.
  WatchMails(std::shared_ptr<WatchNotes> notes, std::string folder)
      : notes_(std::move(notes)), kept_(std::move(folder)) {}

  /// Takes the settings for what is added from now on, and up the mails that wait in the folder.
  void Configure(const WatchSettings& settings, const std::string& senderHostName);
  void Add(WatchMailPart part);
  /// Ends the gathering; what has a folder that stays is put there.
  void Flush();
  /// Sees to it that there is a task while there is work.
  void Resume();
  const std::string& Folder() const { return kept_; }
  /// Forgets what waits. Mails in the folder that was given stay there.
  void GiveUp();
  /// Forgets what is being gathered.
  void GiveUpGathered() { gathered_.clear(); }

  /// What no mail in the folder has yet, each as fields for Recall. Out counts the mails for which
  /// that has changed since.
  std::vector<std::vector<std::string>> Gathered() const;
  void Recall(std::vector<std::string> fields);
  std::uint64_t Out() const { return out_; }

  /// Mails that are not out, and those of them that have been tried.
  std::size_t Waiting() const { return gathered_.size() + spooled_; }
  std::size_t Deferred() const { return deferred_; }

 private:
  friend struct WatchDelivery;

  struct Gathering {
    std::vector<WatchMailPart> parts;
    std::size_t more = 0;  // that had no room
    TimePoint end;         // of the gathering
    bool told = false;     // that it can not be spooled
  };
  using Deliveries = std::map<const WatchDelivery*, MailSpool*>;

  bool HasWork() const { return Waiting() > 0 || !deliveries_.empty(); }
  void Work();
  TimePoint Step();
  TimePoint SpoolGathered();
  bool Spool(Gathering& mail);
  std::int32_t SpoolFor(const std::string& recipients, Gathering& mail);
  std::string Subject(const Gathering& mail) const;
  static std::string Text(const Gathering& mail);
  void HaveFolder();
  void Deliver();
  void Empty();
  void RemoveOwnFolder();
  void Count();
  void Tell(const std::string& text) const;
  std::string SubjectOf(const std::string& id) const;

  const std::shared_ptr<WatchNotes> notes_;
  const std::string kept_;
  std::string server_;
  std::string sender_;
  std::string recipients_;
  std::string senderHostName_;
  std::chrono::seconds groupTime_{0};
  std::string folder_;  // `kept_`, or one of its own; empty while there is none
  std::deque<Gathering> gathered_;
  std::uint64_t out_ = 0;
  std::map<std::string, std::string> subjects_;  // of mails in the folder, by their id
  std::size_t spooled_ = 0;
  std::size_t deferred_ = 0;
  TimePoint nextTry_ = TimePoint::max();
  bool fresh_ = false;  // a mail is in the folder that no delivery has seen
  Deliveries deliveries_;
  Task task_;
};

}  // namespace netro

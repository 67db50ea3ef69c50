#include "diag/WatchReports.h"

#include <chrono>
#include <new>
#include <utility>

#include "diag/WatchHooks.h"
#include "diag/WatchMails.h"
#include "diag/WatchPrograms.h"
#include "diag/WatchReportText.h"
#include "platform/HostInfo.h"

namespace netro {
namespace {

constexpr char kMail[] = "mail";
constexpr char kRun[] = "run";
constexpr char kHook[] = "hook";

bool IsUp(const WatchReport& report) {
  return report.kind == WatchReport::Up || report.kind == WatchReport::Settled;
}

}  // namespace

WatchReports::WatchReports(WatchNotes notes)
    : notes_(std::make_shared<WatchNotes>(std::move(notes))),
      mails_(std::make_shared<WatchMails>(notes_, std::string())),
      programs_(std::make_shared<WatchPrograms>(notes_)),
      hooks_(std::make_shared<WatchHooks>(notes_)) {}

WatchReports::~WatchReports() {
  *notes_ = nullptr;
  try {
    mails_->Flush();
  } catch (const std::bad_alloc&) {
  }
}

void WatchReports::Configure(const WatchSettings& settings, std::shared_ptr<TlsProvider> tls) {
  settings_ = settings;
  hooks_->Tls(std::move(tls));
  programs_->Limit(std::chrono::seconds(settings.programTimeout));
  if (mails_->Folder() != settings.spoolFolder) {
    Flush();  // and those that are left go on by themselves
    mails_ = std::make_shared<WatchMails>(notes_, settings.spoolFolder);
  }
  mails_->Configure(settings, ReadHostName());
}

void WatchReports::Report(const WatchReport& report, std::size_t& done) {
  const auto& actions = IsUp(report) ? settings_.upActions : settings_.downActions;
  for (; done < actions.size(); ++done) Carry(actions[done], report);
  Tick();
}

void WatchReports::Carry(const WatchAction& action, const WatchReport& report) {
  const bool isChange = report.kind == WatchReport::Down || report.kind == WatchReport::Up;
  switch (action.kind) {
    case WatchAction::Log:
      break;  // of every change, whatever the actions are
    case WatchAction::Mail:
      SendMail(report);
      break;
    case WatchAction::Run:
      if (isChange) Run(action, report);
      break;
    case WatchAction::Webhook:
      if (report.kind != WatchReport::Unreachable) Post(action.program, report);
      break;
  }
}

void WatchReports::SendMail(const WatchReport& report) {
  mails_->Add({WatchReportWord(report), WatchReportSubject(report, settings_),
               WatchReportText(report, settings_)});
}

void WatchReports::Run(const WatchAction& action, const WatchReport& report) {
  WatchProgram program;
  program.program = action.program;
  program.facts = report.facts;
  for (const std::string& parameter : action.parameters) {
    program.parameters.push_back(FillWatchText(parameter, settings_, report.facts));
  }
  programs_->Add(std::move(program));
}

void WatchReports::Post(const std::string& url, const WatchReport& report) {
  hooks_->Add({report.date, url, WatchReportJson(report)});
}

void WatchReports::Tick() {
  mails_->Resume();
  programs_->Resume();
  hooks_->Resume();
}

void WatchReports::Flush() { mails_->Flush(); }

std::int32_t WatchReports::MailsWaiting() const {
  return static_cast<std::int32_t>(mails_->Waiting());
}

std::int32_t WatchReports::Untried() const {
  return static_cast<std::int32_t>(mails_->Waiting() - mails_->Deferred() + programs_->Waiting() +
                                   hooks_->Untried());
}

void WatchReports::GiveUp() {
  mails_->GiveUp();
  programs_->GiveUp();
  hooks_->GiveUp();
}

std::vector<WatchWaiting> WatchReports::Waiting() const {
  std::vector<WatchWaiting> all;
  const auto add = [&all](const char* kind, std::vector<std::vector<std::string>> waiting) {
    for (auto& fields : waiting) all.push_back({kind, std::move(fields)});
  };
  add(kMail, mails_->Gathered());
  add(kRun, programs_->Queued());
  add(kHook, hooks_->Queued());
  return all;
}

void WatchReports::Recall(WatchWaiting waiting) {
  if (waiting.kind == kMail) mails_->Recall(std::move(waiting.fields));
  if (waiting.kind == kRun) programs_->Recall(std::move(waiting.fields));
  if (waiting.kind == kHook) hooks_->Recall(std::move(waiting.fields));
}

std::uint64_t WatchReports::Out() const { return mails_->Out() + programs_->Out() + hooks_->Out(); }

void WatchReports::GiveUpWaiting() {
  mails_->GiveUpGathered();
  programs_->GiveUp();
  hooks_->GiveUp();
}

}  // namespace netro

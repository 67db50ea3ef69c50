#include "diag/WatchProbes.h"

#include <netro/Async.h>

#include <new>
#include <utility>
#include <vector>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

constexpr std::size_t kMostConnections = 512;
constexpr std::size_t kMostLookups = 128;

}  // namespace

struct WatchProbes::Probe {
  Number number = 0;
  WatchTarget target;
  WatchProbeTools tools;
  Task task;
  bool looksUp = false;   // counts as a lookup
  bool connects = false;  // counts as a connection
  bool running = false;
};

// What the tasks hold: it outlives the object while they end.
struct WatchProbes::Shared : std::enable_shared_from_this<Shared> {
  using ProbePtr = std::shared_ptr<Probe>;

  void StartSome();
  void StartSome(std::deque<ProbePtr>& row);
  bool MayStart(const Probe& probe) const;
  bool Start(const ProbePtr& probe);
  void LookedUp(Probe& probe);
  void Finish(const ProbePtr& probe, const ProbeResult& result);
  void Leave(Probe& probe);
  static ProbeResult Run(Probe& probe);

  Ended ended;
  WatchProbeTools tools;
  Number last = 0;
  std::unordered_map<Number, ProbePtr> probes;
  // Probes that wait for their turn, by what they need, so that none waits behind one that needs
  // more: a lookup or not, a connection or not.
  std::deque<ProbePtr> rows[2][2];
  std::size_t connections = 0;
  std::size_t lookups = 0;
};

WatchProbes::WatchProbes(Ended ended) : shared_(std::make_shared<Shared>()) {
  shared_->ended = std::move(ended);
}

WatchProbes::~WatchProbes() {
  shared_->ended = nullptr;
  CancelAll();
}

void WatchProbes::Configure(const WatchSettings& settings, std::shared_ptr<TlsProvider> tls) {
  WatchProbeTools& tools = shared_->tools;
  if (!tools.echoes) tools.echoes = std::make_shared<WatchEchoes>();
  tools.tls = std::move(tls);
  tools.echoTimeout = std::chrono::milliseconds(settings.timeout);
  tools.packetSize = settings.packetSize;
  tools.timeout = std::chrono::seconds(settings.httpTimeout);
}

WatchProbes::Number WatchProbes::Begin(const WatchTarget& target) {
  Shared& shared = *shared_;
  const auto probe = std::make_shared<Probe>();
  probe->number = ++shared.last;
  probe->target = target;
  probe->tools = shared.tools;
  probe->looksUp = !NameToLookUp(target).empty();
  probe->connects = target.kind != WatchKind::Ping;
  auto& row = shared.rows[probe->looksUp ? 1 : 0][probe->connects ? 1 : 0];
  row.push_back(probe);
  try {
    shared.probes[probe->number] = probe;
  } catch (...) {
    row.pop_back();
    throw;
  }
  shared.StartSome(row);
  return probe->number;
}

void WatchProbes::Resume() { shared_->StartSome(); }

void WatchProbes::Cancel(Number number) {
  const auto found = shared_->probes.find(number);
  if (found == shared_->probes.end()) return;
  const auto probe = found->second;
  shared_->probes.erase(found);
  probe->task.Cancel();
  shared_->Leave(*probe);
  shared_->StartSome();
}

void WatchProbes::CancelAll() {
  const auto shared = shared_;
  for (auto& both : shared->rows) {
    for (auto& row : both) row.clear();
  }
  for (const auto& [number, probe] : shared->probes) {
    probe->task.Cancel();
    shared->Leave(*probe);
  }
  shared->probes.clear();
}

void WatchProbes::Shared::StartSome() {
  for (auto& both : rows) {
    for (auto& row : both) StartSome(row);
  }
}

void WatchProbes::Shared::StartSome(std::deque<ProbePtr>& row) {
  while (!row.empty() && (!probes.contains(row.front()->number) || MayStart(*row.front()))) {
    const ProbePtr& probe = row.front();
    if (probes.contains(probe->number) && !Start(probe)) return;
    row.pop_front();
  }
}

// An echo needs no descriptor of its own.
bool WatchProbes::Shared::MayStart(const Probe& probe) const {
  return (!probe.connects || connections < kMostConnections) &&
         (!probe.looksUp || lookups < kMostLookups);
}

bool WatchProbes::Shared::Start(const ProbePtr& probe) try {
  probe->tools.lookedUp = [self = weak_from_this(), number = probe->number] {
    const auto shared = self.lock();
    if (!shared) return;
    const auto found = shared->probes.find(number);
    if (found != shared->probes.end()) shared->LookedUp(*found->second);
  };
  probe->task = Async([probe] { return Run(*probe); },
                      [self = shared_from_this(), probe](const ProbeResult& result) {
                        self->Finish(probe, result);
                      });
  if (probe->task.Error() != 0) return false;
  probe->running = true;
  connections += probe->connects ? 1 : 0;
  lookups += probe->looksUp ? 1 : 0;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

ProbeResult WatchProbes::Shared::Run(Probe& probe) {
  try {
    return ProbeHost(probe.target, probe.tools);
  } catch (const std::bad_alloc&) {
    return {ProbeResult::Lacking, -1, {}};
  }
}

void WatchProbes::Shared::LookedUp(Probe& probe) {
  if (!probe.running || !std::exchange(probe.looksUp, false)) return;
  --lookups;
  StartSome();
}

void WatchProbes::Shared::Leave(Probe& probe) {
  if (!std::exchange(probe.running, false)) return;
  connections -= probe.connects ? 1 : 0;
  lookups -= probe.looksUp ? 1 : 0;
}

void WatchProbes::Shared::Finish(const ProbePtr& probe, const ProbeResult& result) {
  const auto self = shared_from_this();
  if (probes.erase(probe->number) == 0) return;  // was cancelled
  Leave(*probe);
  StartSome();
  const Ended tell = ended;
  if (tell) tell(probe->number, result);
}

}  // namespace netro

#include "platform/SystemFiles.h"

#include <mutex>
#include <utility>

namespace netro {
namespace {

struct Root {
  std::mutex mutex;
  std::string path;  // of tests, without the slash at its end
};

// Never destroyed: destructors of static objects and late helper threads may still ask.
Root& TheRoot() {
  static auto* const root = new Root;
  return *root;
}

}  // namespace

std::string SystemPath(std::string_view relative) {
  Root& root = TheRoot();
  const std::scoped_lock lock(root.mutex);
  return ((root.path.empty() ? OwnSystemRoot() : root.path) + "/").append(relative);
}

bool HasSystemRootForTests() {
  Root& root = TheRoot();
  const std::scoped_lock lock(root.mutex);
  return !root.path.empty();
}

void UseSystemRootForTests(std::string root) {
  while (root.ends_with('/')) root.pop_back();
  const std::scoped_lock lock(TheRoot().mutex);
  TheRoot().path = std::move(root);
}

}  // namespace netro

// main of netro_tests. With --in-task all tests run inside a task, on a stack of its own, while
// the thread turns the loop: whatever holds outside of tasks holds inside.
#include <gtest/gtest.h>
#include <netro/MessageLoop.h>

#include <cstring>

namespace {

constexpr std::size_t kStack = std::size_t{8} << 20;

int RunInTask() {
  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  int result = 1;
  const netro::Task tests = loop.StartTask(
      [&] {
        result = RUN_ALL_TESTS();
        loop.QuitLoop();
      },
      kStack);
  while (!tests.Done()) loop.RunLoop();
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const bool inTask = argc > 1 && std::strcmp(argv[1], "--in-task") == 0;
  return inTask ? RunInTask() : RUN_ALL_TESTS();
}

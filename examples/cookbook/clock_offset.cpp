// Tells by how much this computer's clock is wrong: clock_offset SERVER [PORT]
#include <netro/QueryTimeCLS.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  netro::QueryTimeCLS time;
  time.Server(argc > 1 ? argv[1] : "pool.ntp.org");
  time.Port(argc > 2 ? std::atoi(argv[2]) : 123);
  time.Timeout(std::chrono::seconds(3));
  time.SNTPReferenceName(false);  // asks nobody for the name of the server's own clock
  if (!time.QueryTime()) {
    std::cout << time.LastErrMsg() << '\n';
    return 1;
  }
  if (!time.SNTPKissCode().empty()) {
    std::cout << "the server wants to be left alone: " << time.SNTPKissCode() << '\n';
    return 1;
  }
  std::cout << "stratum " << time.SNTPStratumNumber() << ", this clock is "
            << (time.SNTPOffset() > 0 ? "behind by " : "ahead by ") << std::abs(time.SNTPOffset())
            << " s\n";
}

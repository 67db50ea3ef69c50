// Asks several time servers at once, and tells what most of them agree on: compare_clocks SERVER...
#include <netro/TimeSurveyCls.h>

#include <iostream>

int main(int argc, char** argv) {
  netro::TimeSurveyCls survey;
  survey.Servers({argv + 1, argv + argc});
  survey.TotalTimeout(10);
  const bool agreed = survey.Survey();
  for (const netro::TimeServerReport& report : survey.Reports()) {
    std::cout << report.Server << ": ";
    if (report.State == netro::TimeServerStateEnum::LeftOut) {
      std::cout << report.Reason << '\n';
    } else {
      std::cout << report.Offset << " s\n";
    }
  }
  if (agreed) {
    std::cout << "this clock is off by " << survey.Offset() << " s, give or take " << survey.Bound()
              << '\n';
  } else {
    std::cout << survey.LastErrMsg() << '\n';
  }
  return agreed ? 0 : 1;
}

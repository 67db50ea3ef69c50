// Watches the hosts of a settings file and calls a function of yours: watch_function SETTINGS
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>

#include <iostream>

struct Mine : netro::WatchpostClsEvents {
  void Alert(const std::string& kind, std::int32_t, bool isUp, const std::string& name,
             const std::string&, const std::string& failure) override {
    std::cout << name << (isUp ? " is up" : " is down: " + failure) << " (" << kind << ")"
              << std::endl;
  }
};

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  Mine mine;
  netro::WatchpostCls watchpost;
  watchpost.Events(&mine);
  watchpost.OwnReports(true);  // so the file needs hosts, but no action
  watchpost.SettingsName(argv[1]);
  if (!watchpost.StartObservation()) {
    std::cerr << watchpost.LastErrMsg() << '\n';
    return 1;
  }
  netro::MessageLoop::ForThisThread().RunLoop();
}

// Logs in by a form once; the next runs still have the session: login_cookies SITE JAR
#include <netro/HTTPCls.h>

#include <filesystem>
#include <iostream>

// The status of the answer, 0 without one.
int Ask(const std::shared_ptr<netro::CookieJar>& jar, const std::string& url,
        const std::string& form = "") {
  netro::HTTPCls http;
  http.Cookies(jar);
  http.URL(url);
  if (!form.empty()) {
    http.QueryType(netro::QueryPost);
    http.AddHeader("Content-Type", "application/x-www-form-urlencoded");
    http.PostData(form);
  }
  bool timeout = false;
  http.HTTPQuery(timeout);
  return http.HTTPResult();
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string site = argv[1];
  const auto jar = std::make_shared<netro::CookieJar>();
  if (std::filesystem::exists(argv[2]) && jar->Load(argv[2]) != 0) {
    std::cerr << jar->ErrorText() << '\n';
  }
  if (Ask(jar, site + "/account") == 200) {
    std::cout << "still logged in\n";
    return 0;
  }
  Ask(jar, site + "/login", "user=jane&password=secret");
  if (Ask(jar, site + "/account") != 200 || jar->Save(argv[2]) != 0) return 1;
  std::cout << "logged in, " << jar->Count() << " cookie(s) kept\n";
  return 0;
}

// CookieJar: the cookies that servers have set, for the requests that they belong to (RFC 6265).
//
// No class has one by itself. The same jar may serve any number of objects of one thread; it keeps
// what was set until it is deleted, and Save and Load keep it longer.
//
// A cookie is refused that another host or a whole top-level domain (a name without a dot) would
// get, that has control characters or is longer than 4096 bytes, that is Secure but came in clear
// or would replace a Secure one from there, or whose prefix __Secure- or __Host- promises more than
// it has. A host may set 50 cookies and all hosts 3000; then the ones go first that are not Secure,
// and of these the ones that were not sent for the longest time.
//
// Thread: one at a time.
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace netro {

class CookieStore;

class NETRO_EXPORT CookieJar {
 public:
  CookieJar();
  ~CookieJar();
  CookieJar(const CookieJar&) = delete;
  CookieJar& operator=(const CookieJar&) = delete;

  /// The value of the Cookie field for a request to this URL: "a=1; b=2", those of longer paths
  /// first. Empty when no cookie belongs to it. Secure ones go with https only.
  std::string CookieHeader(const std::string& URL);

  /// Takes the value of one Set-Cookie field of an answer from this URL. True when a cookie was
  /// set, replaced, or removed by a date in the past; false when it was refused.
  bool Take(const std::string& SetCookie, const std::string& URL);

  /// The cookies that have not expired.
  std::size_t Count() const;
  /// Removes all.
  void Clear();
  /// Removes those that have no date, as if the session had ended.
  void ClearSession();

  /// Writes all cookies to a file of mode 0600, in the text format that most programs share: lines
  /// of seven columns with tabs between them. The file replaces one that is there in one step.
  /// Returns 0, or 20000 plus the system's number; the old file stays then.
  std::int32_t Save(const std::string& Path);

  /// Adds the cookies of such a file, whose session cookies have 0 for a date. Returns 0, 20000
  /// plus the system's number, or 10022 for a line that is no cookie; ErrorText names it, and
  /// nothing is added.
  std::int32_t Load(const std::string& Path);

  /// What was wrong with the last Save or Load; empty when nothing was. No value of a cookie is in
  /// it.
  const std::string& ErrorText() const { return errorText_; }

 private:
  std::unique_ptr<CookieStore> store_;
  std::string errorText_;
};

}  // namespace netro

// Mail addresses as header fields hold them (RFC 5322, section 3.4). Linear in the length of the
// text, whatever it holds. Thread: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netro {

/// One address taken out of header text.
struct MailAddress {
  std::string address;      // bare: local@host; empty when there is none
  std::string local;        // with its quotes
  std::string host;         // what follows the last "@" outside quotes
  std::string displayName;  // without its quotes
};

/// Takes comments away, then the address inside angle brackets, or the text itself. There is none
/// in a text that leaves open which is meant: several addresses, an unclosed bracket or comment.
///
///     ExtractAddress("\"Doe, Jane\" <jane(home)@x.test>")  // jane@x.test, Doe, Jane
MailAddress ExtractAddress(std::string_view text);

/// The elements of a list separated by commas or semicolons that stand outside quotes, comments and
/// brackets; blank elements and the names of groups are left out.
///
///     SplitAddressList("team: a@x.test, B <b@y.test>; c@z.test")  // a@x.test  B <b@y.test>  c...
std::vector<std::string> SplitAddressList(std::string_view text);

}  // namespace netro

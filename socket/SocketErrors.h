// The texts of socket error numbers. Some numbers have another text in the message table; this
// table decides for everything that a socket reports. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace netro {

/// The text of a number of the socket layer; for one that the table does not hold the system's own,
/// and if there is none "Unknown Error# n.". Empty where memory has run out: it throws nothing.
std::string SocketErrorText(std::int32_t number);

}  // namespace netro

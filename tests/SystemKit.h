// What tests do with the process that each system does in its own way.
#pragma once

#include <memory>
#include <string>

namespace netro {

/// Sets a variable of the environment, or takes it away with null.
void SetVariable(const char* name, const char* value);

/// Has the C library look at the variable TZ again.
void ReadTimeZone();

/// Waits until there is something to read, and a millisecond for a descriptor of -1.
void AwaitReadable(int descriptor, int milliseconds);

/// Makes a pipe that has a name; false where folders hold none.
bool MakePipe(const std::string& path);

/// True when the system lets this program send echoes.
bool EchoIsPermitted();
/// Takes the right to raw sockets from the calling thread, if it has one, until what is returned
/// goes.
std::shared_ptr<void> WithoutRawSockets();

/// What this host calls itself.
std::string HostName();

}  // namespace netro

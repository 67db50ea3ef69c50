// What tests do with the process that each system does in its own way.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace netro {

/// Sets a variable of the environment, or takes it away with null.
void SetVariable(const char* name, const char* value);

/// Has the C library look at the variable TZ again.
void ReadTimeZone();

/// Waits until there is something to read; false when nothing came. A millisecond, and false, for a
/// descriptor of -1.
bool AwaitReadable(int descriptor, int milliseconds);
/// The bytes of a socket that have come and are not read yet.
std::size_t Unread(int socket);
/// Whether small blocks go out at once.
bool HasNoDelay(int socket);
/// Sends a byte besides the others.
void SendUrgent(int socket);

/// Whether `work`, done by a copy of this process, was true; false where there are no copies.
bool InChild(const std::function<bool()>& work);

// A limit of this process until what is returned goes; null where the system has none.

/// It gets no more descriptors than `more`.
std::shared_ptr<void> WithDescriptors(unsigned more);
/// No file grows over this.
std::shared_ptr<void> WithFileSize(unsigned bytes);
/// The system notes when datagrams come, from the first one on.
std::shared_ptr<void> WithArrivalTimes();

/// Whether a file or folder has these permissions; true where none has any.
bool HasMode(const std::string& path, int mode);

/// Makes a pipe that has a name; false where folders hold none.
bool MakePipe(const std::string& path);

/// True when the system lets this program send echoes.
bool EchoIsPermitted();
/// Takes the right to raw sockets from the calling thread, if it has one, until what is returned
/// goes.
std::shared_ptr<void> WithoutRawSockets();

/// Whether the system has a table of services.
bool KnowsServices();

/// What this host calls itself.
std::string HostName();

}  // namespace netro

// What the command asks of its system by itself, where the library has nothing for it: linux/ and
// windows/ have a file for each. Thread: the main one.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace netro {
class MessageLoop;
}

namespace netro::tool {

// --- standard streams ----------------------------------------------------------------------------

/// Makes the three of them usable, whatever the caller left of them; the first call of all.
void PrepareStreams();

bool IsConsole(int descriptor);
/// True when it shows what ESC sequences say.
bool UnderstandsStyles(int descriptor);
/// False while a shell runs this program in the background of its terminal.
bool IsOfForeground(int descriptor);

struct ConsoleSize {
  int columns = 80;
  int rows = 24;
};
/// The usual one where it does not tell.
ConsoleSize SizeOf(int descriptor);

/// Whether a write failed with this errno because nobody reads any more.
bool IsLostReader(int error);
/// Where the reader of standard output does not read, what is left goes nowhere. Signal-safe.
void DropStuckOutput();
/// False while a read from standard input would wait.
bool IsInputReady();

// --- passwords -----------------------------------------------------------------------------------

/// What is typed on the terminal, which does not show it; none when Ctrl-C was typed. Throws
/// UsageError where there is no terminal.
std::optional<std::string> ReadSilently(const std::string& question);
/// What a program prints when it is run with the question; none when it fails.
std::optional<std::string> RunAskProgram(const std::string& program, const std::string& question);

// --- everything else -----------------------------------------------------------------------------

/// Sleeps until the thread has messages to deliver.
void AwaitMessages(MessageLoop& loop);

std::string HomeFolder();
bool MayOthersRead(const std::string& file);
/// A file that was not there, with the rights that the user gives to new files; null with errno.
std::FILE* OpenNewFile(const std::string& name);
/// Gives a file the name of another one, which it replaces. False with errno.
bool RenameOver(const std::string& from, const std::string& to);

/// True when this program may hardly open a file more.
bool IsShortOfDescriptors();

/// Whether the system can convert to a character set.
bool IsCharset(const std::string& name);

/// A UDP socket that never blocks.
int OpenDatagramSocket();
void CloseSocket(int socket);

}  // namespace netro::tool

// The command's standard output and standard error: what may be drawn on them, and how.
// Thread: any one.
#pragma once

#include <string>
#include <string_view>

namespace netro::tool {

enum class Stream { Output, Error };

bool IsTerminal(Stream stream);

/// True where colour and redrawn lines are welcome: on a terminal that understands them, and the
/// user has not set NO_COLOR.
bool IsDecorated(Stream stream);

/// False while a shell runs this program in the background of its terminal.
bool IsInForeground(Stream stream = Stream::Error);

/// Columns of the terminal, 80 when it does not tell.
int Width(Stream stream);
/// Rows of the terminal, 24 when it does not tell.
int Height(Stream stream);

enum class Style { Bold, Dim, Green, Red, Cyan };

/// `text` in a style, unchanged where standard output is not decorated.
std::string Styled(Style style, std::string_view text);

/// Prints to standard output. False when it can no longer be written to.
bool Print(std::string_view text);

/// Hands over what has been printed, as a reader who watches wants it. False as Print.
bool Flush();

/// Where a reader that does not read holds up the program, what is left goes nowhere. For handlers
/// of signals that end the program.
void GiveUpStuckOutput();

/// Prints bytes from the network: as they are, but to a terminal as ShownText with a line end.
bool PrintForeign(std::string_view bytes);

/// Prints "netro: text" to standard error, with bytes that could disturb a terminal made visible.
void ShowMessage(std::string_view text);

/// Flushes standard output. Returns `status`, or QueryFailed when the output could not be written;
/// a reader that went away is no cause for a message.
int FinishOutput(int status);

}  // namespace netro::tool

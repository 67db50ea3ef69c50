// The settings file that "netro watch --example" prints: it works as it is, and shows every key
// with its default.

#include "watch/WatchExample.h"

namespace netro::tool {

const char* const kWatchExample =
    R"(; Settings of a host watcher. Start it with: netro watch THIS_FILE
; Lines that begin with ";" are comments. A key that is not given has the value shown for it here.

; The hosts, as name = host|Ping or name = URL|http. The name is what reports call the host.
; Ping sends an ICMP echo. http fetches the URL, and a status from 200 to 399 is a success; this
; proves more than an echo does, namely that the server works.
[HostNames]
This computer = 127.0.0.1|Ping
; Router      = 192.0.2.1|Ping
; Web site    = http://www.example.com/|http

; What to do when a host has failed DownCycle times in a row, one action a line, each with a key of
; its own: "log" writes a line to the log, which is beside this file with the ending "csv"; "mail"
; sends a mail; "run" starts a program without a shell. At least one action must be there, here or
; in UpActions.
[DownActions]
1 = log
; 2 = mail
; 3 = run|/usr/bin/logger|-t watch "Name$ is down: ErrorDump$"

; And when one that was down has answered UpCycle times in a row.
[UpActions]
1 = log
; 2 = mail

[Settings]
; Seconds from one probe of a host to the next: while it is up, and while it fails or is down.
; Less than 300 and 10 are not possible.
; UpDelay = 300
; DownDelay = 10

; In a row, to be reported.
; UpCycle = 5
; DownCycle = 5

; Seconds that an http probe may take.
; HTTPTimeout = 30

; Mail. MailServer is host or host:port; without one the mail goes to the recipient's own server.
; Sender = watch@example.com
; Recipients = admin@example.com
; MailServer = localhost:25

; The texts. SenderHostName$ is this computer, Name$ (or HostName$) and Host$ are the two parts of a
; line of HostNames, ErrorDump$ is the text of the last failure. UpDelay$, DownDelay$, UpCycle$,
; DownCycle$, Sender$, Recipients$, UpSubject$, DownSubject$, UpActionMsg$ and DownActionMsg$ are the
; settings of that name. The parameters of a program may hold all of them.
; UpLogMsg = SenderHostName$: Name$ is up again!
; DownLogMsg = SenderHostName$: Name$ could not be reached! ErrorDump$
; UpSubject = SenderHostName$: HostUp Info for Name$
; DownSubject = SenderHostName$: HostDown Info for Name$
; UpActionMsg = SenderHostName$: UpCycle$ connects in a row to Name$ successfull after 'DownAction'. Retry in UpDelay$ seconds.
; DownActionMsg = SenderHostName$: DownCycle$ connects in a row to Name$ failed. Retry in DownDelay$ seconds. ErrorDump$

[PingSettings]
; Milliseconds to wait for an echo, and its bytes of data.
; Timeout = 300
; PacketSize = 32

; 1 plays a sound with every round of echoes.
; PlaySonarSound = 0
)";

}  // namespace netro::tool

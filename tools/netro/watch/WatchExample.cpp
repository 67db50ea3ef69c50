// The settings file that "netro watch --example" prints: it works as it is, and shows every key
// with its default.

#include "watch/WatchExample.h"

namespace netro::tool {

const char* const kWatchExample =
    R"(; Settings of a host watcher. Start it with: netro watch THIS_FILE
; Lines that begin with ";" are comments. A key that is not given has the value shown for it here.

; The hosts, as name = host|kind or name = URL|http. The name is what reports call the host.
; Ping sends an ICMP echo. http and https fetch the URL, and a status from 200 to 399 (or in the range
; given) is a success, with a text to find and the days that the certificate must have left, if given;
; this proves more than an echo does, namely that the server works. tcp:PORT connects, and may want a
; text in the greeting; smtp, dns:NAME and ntp talk to such a server.
[HostNames]
This computer = 127.0.0.1|Ping
; Router      = 192.0.2.1|Ping
; Web site    = http://www.example.com/|http
; Shop        = https://shop.example.com/|https 200 14d "all is well"
; Login       = 192.0.2.7|tcp:22 "SSH-"
; Mail        = mail.example.com|smtp
; Names       = 192.0.2.53|dns:www.example.com
; Clock       = 192.0.2.123|ntp

; Hosts that stand behind another one: when that one is down they are "unreachable", and reported
; with it.
[Parents]
; Web site    = Router

; What to do when a host has failed DownCycle times in a row, one action a line, each with a key of
; its own: "mail" sends a mail; "run" starts a program without a shell; "webhook" posts a JSON object
; to a URL. Each change is in the log, whatever the actions are; "log" does nothing more, but at least
; one action must be there, here or in UpActions.
[DownActions]
1 = log
; 2 = mail
; 3 = run|/usr/bin/logger|-t watch "Name$ is down: ErrorDump$"
; 4 = webhook|http://chat.example.com/hooks/watch

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

; Not 0: UpCycle of the last UpWindow probes, and DownCycle of the last DownWindow, instead of in a
; row.
; UpWindow = 0
; DownWindow = 0

; A host with so many changes within so many seconds flaps, and no more is reported of it until it
; has settled. 0: none does.
; FlapChanges = 0
; FlapWindow = 3600

; Seconds that a probe may take that is no echo.
; HTTPTimeout = 30

; Seconds after which a host that is still down is reported again; 0: never. And hours (local time) in
; which nothing is reported, as 22:00-06:00.
; RemindAfter = 0
; QuietHours =

; The host whose silence means that this computer's own connection is gone: then nothing is judged.
; Uplink =

; The log; without a name it is beside this file with the ending "csv". The file that lets a restart go
; on where it was, and the folder where mails wait for their server; without names nothing outlives the
; program.
; LogFile =
; StateFile =
; SpoolFolder =

; Mail. MailServer is host or host:port; without one the mail goes to the recipient's own server.
; Sender = watch@example.com
; Recipients = admin@example.com
; MailServer = localhost:25
; Reports within so many seconds share a mail.
; GroupSeconds = 5

; Seconds that a program may run.
; ProgramTimeout = 60

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

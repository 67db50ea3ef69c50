"""Runs each recipe of the cookbook against scripted servers and looks at what it prints.

Usage: cookbook_test.py FOLDER-OF-PROGRAMS FOLDER-OF-RECIPES
"""

import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile

PROGRAMS, RECIPES = (pathlib.Path(folder) for folder in sys.argv[1:3])
LIMIT = 60  # seconds; only a program that hangs reaches it

# Recipe, arguments, what its standard output is (a pattern), exit status, standard input. {name} is
# the port of a server of Peers.cpp, or a file made below.
SITE = "http://127.0.0.1:{http}"
TABLE = [
    ("get_page", [SITE + "/moved"], "hello\n", 0, ""),
    ("download_many", ["{out}"], "200 of 200 downloaded\n", 0, (SITE + "/lines\n") * 200),
    ("download_many", ["{out}"], "1 of 2 downloaded\n", 1, SITE + "/\n" + SITE + "/none\n"),
    ("stream_body", [SITE + "/lines"], "3 lines\n", 0, ""),
    ("resume_download", [SITE + "/file", "{out}/big"], ".*\nRun me again for the rest.\n", 1, ""),
    ("resume_download", [SITE + "/file", "{out}/big"], "206, 1000 bytes in .*big\n", 0, ""),
    ("post_json", [SITE + "/json", '{{"a":1}}'], '201 {{"got":{{"a":1}}}}\n', 0, ""),
    ("upload_form", [SITE + "/form", "{first}"], "204 Taken\n", 0, ""),
    ("login_cookies", [SITE, "{out}/jar"], r"logged in, 1 cookie\(s\) kept\n", 0, ""),
    ("login_cookies", [SITE, "{out}/jar"], "still logged in\n", 0, ""),
    ("https_pinned", ["https://localhost:{https}/", "{pin}", "{trust}"], "TLSv1.3\n", 0, ""),
    ("https_pinned", ["https://localhost:{https}/", "A" * 43 + "=", "{trust}"],
     "This is another key: .*\n", 1, ""),
    ("compressed_page", [SITE + "/packed"], "6000 bytes, packed as gzip\n", 0, ""),
    ("socks_proxy", ["http://far.test:{http}/", "127.0.0.1", "{socks}"], "200 OK\n", 0, ""),
    ("retry_later", [SITE + "/busy"], "200 at try 3\n", 0, ""),
    ("one_deadline", ["1500", SITE + "/", SITE + "/silent", SITE + "/"],
     "200\nno time left for 2 of 3\n", 0, ""),
    ("stop_with_ctrl_c", [SITE + "/silent"], "Ctrl-C stops me\nstopped\n", 1, signal.SIGINT),
    ("coroutines", [SITE + "/", SITE + "/none"], "(200 404|404 200)\n(200 404|404 200)\n", 0, ""),
    ("gui_resolve", ["127.0.0.1:{dns}", "one.test", "none.test"],
     "(one.test: 192.0.2.1\nnone.test: .+|none.test: .+\none.test: 192.0.2.1)\n", 0, ""),
    ("mail_attachments", ["localhost", "{submission}", "{first}", "{second}", "{trust}"],
     r"sent, \d+ bytes\n", 0, ""),
    ("check_address", ["boss@example.org", "127.0.0.1", "{smtp}"], "taken\n", 0, ""),
    ("check_address", ["nobody@example.org", "127.0.0.1", "{smtp}"],
     "not taken: 550 no such user\\s*", 1, ""),
    ("check_address", ["boss"], "no address: .+\n", 1, ""),
    ("mail_spool", ["{out}/spool", "127.0.0.1", "{refusing}"],
     "boss@example.org: later, .*\n1 waiting\n", 0, ""),
    ("mail_spool", ["{out}/spool", "127.0.0.1", "{smtp}"],
     "boss@example.org: delivered\n1 waiting\n", 0, ""),
    ("smtp_session", ["127.0.0.1", "{smtp}", "jane@example.com", "boss@example.org"],
     r"(.*\n)*\S+ 354 .*\n(.*\n)*\S+ QUIT\n\S+ 221 bye\n", 0, "Subject: Hi\n\nHello\n"),
    ("smtp_session", ["127.0.0.1", "{smtp}", "jane@example.com", "nobody@example.org"],
     r"(.*\n)*ended at .*: 550 no such user\s*", 1, "Subject: Hi\n\nHello\n"),
    ("port_open", ["127.0.0.1", "{http}"], "open\n", 0, ""),
    ("port_open", ["127.0.0.1", "{refusing}"], "Connection Refused.*\n", 1, ""),
    ("line_client", ["127.0.0.1", "{whois}", "this"], "this is Jane's\n", 0, ""),
    ("mx_records", ["xy.test", "127.0.0.1", "{dns}"], r"10 mx.test \(300 s\)\n", 0, ""),
    ("zone_transfer", ["xy.test", "127.0.0.1", "{dns}"],
     r'xy\.test\. 300 IN SOA .*\nxy\.test\. 300 IN TXT "hello"\n', 0, ""),
    ("clock_offset", ["127.0.0.1", "{time}"],
     r"stratum \d, this clock is behind by 3(599\.\d+|600(\.\d+)?) s\n", 0, ""),
    ("dns_server_limits", ["127.0.0.1", "{dns}"],
     "datagrams up to 1232 bytes, DNSSEC yes\n", 0, ""),
    ("known_names", ["one.test", "{out}/names", "127.0.0.1:{dns}"], "192.0.2.1, looked up\n", 0, ""),
    ("known_names", ["one.test", "{out}/names", "127.0.0.1:{refusing}"], "192.0.2.1, known\n", 0, ""),
    ("compare_clocks", ["127.0.0.1", "none.invalid."],
     r"127.0.0.1: .+\nnone.invalid.: .+\n.+\n", 1, ""),
    ("route_to", ["127.0.0.1"], r"1 127\.0\.0\.1 \d+ ms\n", 0, ""),
    ("mac_addresses", [], r"(([0-9A-F]{{2}}:){{5}}[0-9A-F]{{2}}\n)*", 0, ""),
    ("whois_lookup", ["this", "127.0.0.1:{whois}"], "this is Jane's\n", 0, ""),
    ("watch_function", ["{hosts}"], r"web is down: .* \(tcp:\d+\)\n", -signal.SIGTERM,
     signal.SIGTERM),
    ("network_sweep", ["127.0.0", "{refusing}"], "254 hosts\n", 0, ""),
    ("test_without_network", [], "passed\n", 0, ""),
    ("log_lines", ["{out}/log"], "", 0, ""),
    ("udp_ask", ["127.0.0.1", "{udp}", "hello"], "hello\n", 0, ""),
]


def start(name, *arguments):
    return subprocess.Popen([PROGRAMS / name, *arguments], text=True, stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def run(name, arguments, stdin):
    """Output and status. A signal as input is sent once the program has printed a line."""
    program = start("recipe_" + name, *arguments)
    first = ""
    if isinstance(stdin, signal.Signals):
        first = program.stdout.readline()
        program.send_signal(stdin)
        stdin = ""
    output, errors = program.communicate(stdin, LIMIT)
    return first + output, program.returncode, errors


def check_line_server():
    server = start("recipe_line_server")
    port = int(server.stdout.readline().split()[1])
    with socket.create_connection(("127.0.0.1", port)) as client, client.makefile("rw") as lines:
        lines.write("one\ntwo\n")
        lines.flush()
        answer = lines.readline() + lines.readline()
    server.kill()
    server.communicate()
    return [] if answer == "you said: one\nyou said: two\n" else ["line_server: " + repr(answer)]


def check_rows(places):
    faults = []
    for name, arguments, wanted, status, stdin in TABLE:
        if isinstance(stdin, str):
            stdin = stdin.format(**places)
        output, got, errors = run(name, [text.format(**places) for text in arguments], stdin)
        if got != status or not re.fullmatch(wanted.replace("{{", "{").replace("}}", "}"), output):
            faults.append(f"{name}: status {got}, {output!r}\n{errors}")
    return faults


def make_files(folder, places):
    for name, text in [
        ("first", "1"),
        ("second", "2"),
        ("hosts", "[Settings]\nDownCycle=1\nDownDelay=1\n[HostNames]\n"
         f"web=127.0.0.1|tcp:{places['refusing']}\n"),
    ]:
        path = pathlib.Path(folder, name + ".txt")
        path.write_text(text)
        places[name] = str(path)
    places.update(out=folder, trust=folder + "/authority.pem")


def main():
    recipes = {path.stem for path in RECIPES.glob("*.cpp")}
    untried = recipes - {row[0] for row in TABLE} - {"line_server"}
    faults = [f"{name}: nothing tries it" for name in sorted(untried)]
    with tempfile.TemporaryDirectory() as folder:
        peers = start("netro_cookbook_peers", folder)
        places = {}
        while "refusing" not in places:
            name, _, value = peers.stdout.readline().strip().partition("=")
            places[name] = value
        make_files(folder, places)
        faults += check_rows(places) + check_line_server()
        written = pathlib.Path(folder, "log").read_text()
        if written != "time;host;event\n10:00;web;down\n10:05;web;up\\nforged line\n":
            faults.append("log_lines: " + repr(written))
        if pathlib.Path(folder, "big").read_bytes() != b"a" * 500 + b"b" * 500:
            faults.append("resume_download: another file")
        peers.communicate("", LIMIT)
    print("\n".join(faults) or f"{len(recipes)} recipes work")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

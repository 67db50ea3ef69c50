// The command "netro dns" against BIND's name server: the zone that it prints is the same one.

#include <gtest/gtest.h>

#include "NamedServer.h"
#include "ServerProcess.h"

namespace netro::interop {
namespace {

// Records of every format that BIND accepts; the owners begin with "t" and the number of the type.
constexpr char kTypes[] = R"zone(
t1 A 10.1.2.3
t1-ttl 2147483647 A 10.1.2.3
t5 CNAME target.elsewhere.
t7 MB host.elsewhere.
t8 MG one
t9 MR new.mail
t11 WKS 10.0.0.1 tcp ( 25 80 443 )
t12 PTR www
t13 HINFO "PC \"Intel\" \\" Linux
t14 MINFO owner errors.elsewhere.
t15 MX 10 mail
t16-several TXT "one" "two words" "q\"uote\\" ""
t16-bytes TXT "nul \000, bell \007, e acute \195\169, \255; $ @ ()"
t16-long TXT "012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234"
t17-dotted RP john\.doe about
t18 AFSDB 1 afs
t19 X25 311061700956
t20-sub ISDN "150862028003217" "004"
t21 RT 65535 relay
t28 AAAA 2001:db8::1
t29 LOC 52 22 23.000 N 4 53 32.000 E -2.00m 0.50m 10000m 10m
t29-low LOC 90 0 0.000 S 180 0 0.000 W -100000.00m 1m 90000000.00m 1m
t33 SRV 40000 65535 5060 www
t34-nsap ATMA 47000580ffe1000000f21510050020ea000ee50000
t10 NULL \# 3 0001FF
t22 NSAP 0x47.0005.80.005a00.0000.0001.e133.ffffff000161.00
t23 NSAP-PTR foo.bar.
t26 PX 65535 foo. bar.
t27 GPOS -22.6882 116.8652 250.0
t30 NXT a.secure. NS SOA MX SIG KEY LOC NXT
t31 EID 12 89 AB
t35 NAPTR 100 50 "s" "http+I2L" "!^.*$!sip:info@example!" _http._tcp.foo.
t36 KX 10 kdc
t37 CERT 65534 65535 PRIVATEOID MxFcby9k/yvedMfQgKzhHw==
t38 A6 0 ::1
t39 DNAME target.elsewhere.
t40 SINK 8 0 2 l4ik
t42 APL !1:10.0.0.1/32 1:10.0.0.0/24
t43 NS ns
t43 DS 31589 8 2 CDE0D742D6998AA554A92D890F8184C698CFAC8A26FA59875A990C03E576343C
t44 SSHFP 4 1 C76D8329954DA2835751E371544E963EFDA09908
t45 IPSECKEY 10 1 2 192.0.2.38 AQNRU3mG7TVTO2BkR47usntb102uFJtugbo6BSGvgqt4AQ==
t46 RRSIG NSEC 1 3 3600 20000102030405 19961211100908 2143 foo.nil. MxFcby9k/yvedMfQgKzhHw==
t47 NSEC next A MX TYPE65281
t48 DNSKEY 512 3 1 AQMFD5raczCJHViKtLYhWGz8hMY9UGRuniJDBzC7w0aR
t49 DHCID AAIBY2/AuCccgoJbsaxcQc9TUapptP69lOjxfNuVAA2kjEA=
t52 TLSA 1 1 1 92003ba34942dc74152e2f2c408d29eca5a520e7f2e06bb944f4dca346baf63c
t55 HIP 2 200100107B1A74DF365639CC39F1D578 AwEAAbdxyhNuSutc5EMzxTs9LBPC
t58 TALINK . talink1
t61 OPENPGPKEY AQMFD5raczCJHViKtLYhWGz8
t62 CSYNC 0 0 A NS AAAA
t63 ZONEMD 2019020700 1 1 C220B8A6ED5728A971902F7E3D4FD93ADEEA88B0453C2E8E8C863D465AB06CF34EB95B266398C98B59124FA239CB7EEB
t64 SVCB 1 svc alpn=h2,h3 port=8443 ipv4hint=192.0.2.1
t104 NID 10 0014:4fff:ff20:ee64
t105 L32 10 10.1.2.0
t107 LP 10 l64
t108 EUI48 01-23-45-67-89-ab
t256 URI 10 20 "https://www.example/"
t257 CAA 0 issue "ca.example"
t259 DOA 1234567890 1234567890 1 "image/gif" R0lGODlh
t260 AMTRELAY 0 0 2 2001:db8::15
t1000 TYPE1000 \# 0
t65280 TYPE65280 \# 4 0A000001
)zone";

// Every byte in labels and strings, and what looks like something else: one label like two, one
// string like several, the zone's own name, directives and comments.
std::string HostileRecords() {
  std::string text = R"zone(
a\.b A 192.0.2.1
a.b A 192.0.2.2
\@ TXT "the zone" ; a comment
\$TTL TXT "$TTL 7" "$INCLUDE /etc/passwd"
\;x TXT "; no comment" "( no group )"
two\032words.\"q\".x\\.y\. CNAME a\.b.c\032d
r RP john\.doe\.jun a\.b
r MINFO a\032b c\.d
m MX 10 a\.b
m SRV 1 2 3 a\.b\040c
m AFSDB 1 a\.b
one TXT "\"a\" \"b\""
one ISDN "\"1\" \"2\""
several TXT "a" "b"
empty TXT ""
lines TXT "a\010b\013\010c A 192.0.2.3"
)zone";
  for (int byte = 0; byte < 256; ++byte) {
    const std::string number = std::to_string(1000 + byte).substr(1);
    text += "l" + std::to_string(byte) + "x\\" + number + "y.z TXT \"x\\" + number + "y\"\n";
  }
  return text;
}

// A zone file as BIND's tools write it: full names, sorted, each record in one way.
std::string Canonical(const std::string& zone, const std::string& file) {
  const std::string sorted = file + ".canonical";
  Run({FindProgram("named-compilezone"), "-q", "-D", "-i", "none", "-k", "ignore", "-n", "ignore",
       "-s", "full", "-o", sorted, zone, file});
  return ReadFile(sorted);
}

TEST(ZoneCommand, OutputIsTheSameZone) {
  if (!NamedServer::IsInstalled() || FindProgram("named-compilezone").empty()) {
    GTEST_SKIP() << "bind9, bind9-utils and bind9-dnsutils are not installed";
  }
  const std::string head =
      "$TTL 3600\n@ SOA ns\\.1 john\\.doe 4000000000 7200 3600 1209600 300\n@ NS ns\nns A "
      "127.0.0.1\n";
  const TemporaryFolder folder;
  for (const std::string& records : {HostileRecords(), std::string(kTypes)}) {
    const NamedServer server({{"example", head + records, "check-names ignore;"}}, "");
    ASSERT_TRUE(server.IsUp()) << server.Output();
    WriteFile(folder / "served", head + records);
    WriteFile(folder / "printed",
              interop::Run({NETRO_COMMAND, "dns", "--zone", "example", "--server",
                            "127.0.0.1:" + std::to_string(server.Port())}));
    const std::string wanted = Canonical("example", folder / "served");
    EXPECT_GT(wanted.size(), 1000u);
    EXPECT_EQ(Canonical("example", folder / "printed"), wanted);
  }
}

}  // namespace
}  // namespace netro::interop

#include "BindZones.h"

#include <sstream>

namespace netro::interop {

const char kZoneHead[] = R"zone($TTL 3600
@ SOA ns hostmaster 4000000000 7200 3600 1209600 300
@ NS ns
ns A 127.0.0.1
)zone";

const char kDecodedTypes[] = R"zone(
t1 A 10.1.2.3
t1 A 255.255.255.255
t1 60 A 0.0.0.0
t1-ttl 2147483647 A 10.1.2.3
t5 CNAME target.elsewhere.
t7 MB host.elsewhere.
t8 MG one
t8 MG two.elsewhere.
t9 MR new.mail
t11 WKS 10.0.0.1 tcp ( 25 80 443 )
t11-udp WKS 10.0.0.2 udp ( 0 )
t11-none WKS 10.0.0.3 17
t11-last WKS 10.0.0.3 tcp ( 1023 )
t12 PTR www
t13 HINFO "PC \"Intel\" \\" Linux
t13-empty HINFO "" ""
t14 MINFO owner errors.elsewhere.
t14-root MINFO . .
t15 MX 10 mail
t15 MX 40000 mail.elsewhere.
t15 MX 0 .
t16 TXT single
t16-several TXT "one" "two words" "q\"uote\\" ""
t16-empty TXT ""
t16-quoted TXT "\"a\" \"b\""
t16-bytes TXT "nul \000, bell \007, e acute \195\169, \255; $ @ ()"
t16-long TXT "012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234"
t17 RP john about
t17-dotted RP john\.doe about
t17-root RP . .
t18 AFSDB 1 afs
t18 AFSDB 2 dce
t18 AFSDB 3 other
t19 X25 311061700956
t20 ISDN "150862028003217"
t20-sub ISDN "150862028003217" "004"
t21 RT 65535 relay
t28 AAAA 2001:db8::1
t28 AAAA ::
t28 AAAA ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff
t28 AAAA ::ffff:10.1.2.3
t29 LOC 52 22 23.000 N 4 53 32.000 E -2.00m 0.50m 10000m 10m
t29-zero LOC 0 0 0.000 N 0 0 0.000 E 0.00m 0.00m 0.00m 0.00m
t29-low LOC 90 0 0.000 S 180 0 0.000 W -100000.00m 1m 90000000.00m 1m
t29-high LOC 89 59 59.999 N 179 59 59.999 E 42849672.95m 0.01m 0.09m 0.10m
t33 SRV 40000 65535 5060 www
t33 SRV 0 0 0 .
t34 ATMA +61200000000
t34-nsap ATMA 47000580ffe1000000f21510050020ea000ee50000
)zone";

const char kDumpedTypes[] = R"zone(
t10 NULL \# 3 0001FF
t22 NSAP 0x47.0005.80.005a00.0000.0001.e133.ffffff000161.00
t23 NSAP-PTR foo.bar.
t24 SIG NXT 1 3 3600 20000102030405 19961211100908 2143 foo.nil. MxFcby9k/yvedMfQgKzhHw==
t25 KEY 512 255 1 AQMFD5raczCJHViKtLYhWGz8hMY9UGRuniJDBzC7w0aR
t26 PX 65535 foo. bar.
t27 GPOS -22.6882 116.8652 250.0
t30 NXT a.secure. NS SOA MX SIG KEY LOC NXT
t31 EID 12 89 AB
t32 NIMLOC 12 89 AB
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
t53 SMIMEA 1 1 2 92003ba34942dc74152e2f2c408d29ec
t55 HIP 2 200100107B1A74DF365639CC39F1D578 AwEAAbdxyhNuSutc5EMzxTs9LBPC
t56 NINFO "a" "b"
t57 RKEY 0 255 1 AQMFD5raczCJHViKtLYhWGz8
t58 TALINK . talink1
t59 CDS 30795 1 1 310D27F4D82C1FC2400704EA9939FE6E1CEAA3B9
t60 CDNSKEY 512 255 1 AQMFD5raczCJHViKtLYhWGz8
t61 OPENPGPKEY AQMFD5raczCJHViKtLYhWGz8
t62 CSYNC 0 0 A NS AAAA
t63 ZONEMD 2019020700 1 1 C220B8A6ED5728A971902F7E3D4FD93ADEEA88B0453C2E8E8C863D465AB06CF34EB95B266398C98B59124FA239CB7EEB
t64 SVCB 1 svc alpn=h2,h3 port=8443 ipv4hint=192.0.2.1
t65 HTTPS 0 www
t99 SPF "v=spf1 -all"
t104 NID 10 0014:4fff:ff20:ee64
t105 L32 10 10.1.2.0
t106 L64 10 2001:db8:1140:1000
t107 LP 10 l64
t108 EUI48 01-23-45-67-89-ab
t109 EUI64 01-23-45-67-89-ab-cd-ef
t256 URI 10 20 "https://www.example/"
t257 CAA 0 issue "ca.example"
t258 AVC "app=1"
t259 DOA 1234567890 1234567890 1 "image/gif" R0lGODlh
t260 AMTRELAY 0 0 2 2001:db8::15
t1000 TYPE1000 \# 0
t32768 TA 30795 1 1 310D27F4D82C1FC2400704EA9939FE6E1CEAA3B9
t32769 DLV 30795 1 1 310D27F4D82C1FC2400704EA9939FE6E1CEAA3B9
t65280 TYPE65280 \# 4 0A000001
)zone";

const char kOtherNames[] = R"zone(
www A 10.1.2.3
www AAAA 2001:db8::1
mail A 10.1.2.4
@ MX 10 mail
@ MX 20 mail.elsewhere.
_sip._tcp SRV 10 20 5060 www
alias CNAME www
twice CNAME alias
outside CNAME www.elsewhere.
*.wild A 10.9.9.9
sub NS ns.sub
ns.sub A 127.0.0.2
a.b.empty A 10.1.2.5
012345678901234567890123456789012345678901234567890123456789012.long A 10.1.2.6
)zone";

const char kReverseZone[] = R"zone($TTL 3600
@ SOA ns.example. john\.doe.example. 1 7200 3600 1209600 300
@ NS ns.example.
3.2 PTR www.example.
4.2 PTR mail.example.
4.2 PTR also.example.
255.255 PTR last.example.
)zone";

std::vector<Question> QuestionsOf(const char* table) {
  std::vector<Question> questions;
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    const std::string name = line.substr(0, line.find(' ')) + ".example";
    if (!questions.empty() && questions.back().name == name) continue;
    questions.push_back({name, std::stoi(line.substr(1))});
  }
  return questions;
}

std::string HostAddress(std::uint32_t number) {
  const std::uint32_t value = number * 7919 % (1 << 24);
  return "10." + std::to_string(value >> 16) + "." + std::to_string(value >> 8 & 255) + "." +
         std::to_string(value & 255);
}

std::string HostZone(std::uint32_t count) {
  std::string text = kZoneHead;
  for (std::uint32_t i = 0; i < count; ++i)
    text += "h" + std::to_string(i) + " A " + HostAddress(i) + "\n";
  return text;
}

std::string LargeSets() {
  std::string text;
  for (const char c : {'a', 'b'})
    text += "large TXT \"" + std::string(200, c) + "\" \"" + std::string(200, c) + "\"\n";
  for (int i = 0; i < 100; ++i) text += "many A 10.2.0." + std::to_string(i) + "\n";
  return text;
}

}  // namespace netro::interop

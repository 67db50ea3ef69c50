// The message table: every numbered text of the library, sorted by number.
//
// Numbers and texts are public behaviour. Callers compare them, so odd wording, typos and trailing
// blanks stay as they are.

#include "support/MessageTexts.h"

#include <algorithm>
#include <array>

namespace netro {
namespace {

struct MessageText {
  std::int32_t number;
  std::string_view text;
};

constexpr auto kMessageTexts = std::to_array<MessageText>({
    // Name of the language.
    {101, "English"},
    // Mail delivery and spool.
    {1000, "Can not ping to check host '%1'. Result: '%1'. Application aborted."},
    {1001, "Error while setting recipient id '%1' invalid. System Message: '%2'"},
    {1002, "Error while creating return mail file '%1'."},
    {1003, "Can not delete '%1'."},
    {1004, "Can not create mime object. System Message: '%1'"},
    {2008, "<no subject>"},
    // Mail result classes.
    {3010, "Fatal DNS Error"},
    {3011, "Fatal SMTP Error"},
    {3012, "Too much bad retries"},
    {3013, "Invalid eMail address syntax"},
    {3014, "Temporary DNS problem"},
    {3015, "Temporary SMTP problem"},
    {3016, "Other DNS problem"},
    {3017, "Other SMTP problem"},
    {3018, "Pending"},
    // Kinds of recipient.
    {3101, "Standard"},
    {3102, "Carbon Copy"},
    {3103, "Blind Carbon Copy"},
    // SMTP step names (3200 + step), short list.
    {3200, "Undefined"},
    {3210, "DNS"},
    {3215, "Connect"},
    {3220, "Helo"},
    {3230, "MailFrom"},
    {3240, "RCPTTo"},
    {3250, "Data"},
    {3260, "SendData"},
    {3270, "Quit"},
    {3280, "Done"},
    {3290, "SocketError"},
    {3291, "InitSocket"},
    {3294, "Auto DNS"},
    // Message states, short list.
    {3300, "Undefined"},
    {3301, "New Message"},
    {3302, "Message Sent"},
    {3303, "Invalid Mime"},
    {3304, "Disabled"},
    {3312, "Too Much Retries"},
    {3314, "Invalid Address"},
    {3317, "Other DNS Problem"},
    {3318, "Other SMTP Problem"},
    {3320, "Retry At"},
    // Address syntax check (3500 + result).
    {3500, "No Syntax Error found"},
    {3501, "Empty String detected"},
    {3502, "Localname part of address is not like '??*.??*'"},
    {3503, "IP like Hast Address must only contain '0-9.'"},
    {3504, "eMail Address must contain a Host after @"},
    {3505, "Unknown TLD (Top Level Domain) found"},
    {3506, "Closing ] not found in an IP like Host Address"},
    {3507, "IP like Host Address must have the format [xxx.xxx.xxx.xxx]"},
    {3508, "eMail Address must contain a Localname before @"},
    {3509, "Illegal characters detected in Localname part of Address. "},
    // Spooled mail files and retries.
    {4000, "Sender missing in mime file."},
    {4001, "Recipient missing in mime file."},
    {4002, "DNS Error. System Message: '%1'"},
    {4003, "Not a mime file."},
    {4004, "Retry sending to '%1' at '%2'."},
    {4005, "SMTP Error. System Message: '%1'"},
    {4006, "Error while preparing mail. System Message: '%1'"},
    {4007, "Invalid eMail Address '%1'."},
    {4008, "The sender eMail address '%1' is invalid. The mail will not be send."},
    {5000, "Could not build message file."},
    {5001, "Error while writing mime file '%1'. System Message: '%2' "},
    {5002, "Mail path '%1' not found."},
    // Tuning lists of the SMTP dialogue and of retrying.
    {6002, "5"},
    {6003, "100"},
    {6007, "10:3,10:5,10:10,10:22,10:59,30:550,30:554,40:550,40:551,40:553,40:554"},
    {6008, "40:504,40:451,40:552"},
    {6009, "10:0,15:220,20:220,20:250,30:250,40:250,50:354,50:250,60:250,70:221,70:250,70:550"},
    {6010, "15:60,20:60,30:60,40:60,50:60,60:20,70:60"},
    {6011, "600,600,600,600,600,600,3600,3600,14400,14400,86400,86400"},
    {6012, "0"},
    {6013, "0"},
    // Protocol lines.
    {7000, "Can not connect to host '%1'."},
    {7001, "[%1] Timeout while '%2'."},
    {7002, "%1 Timeout while '%2'."},
    {7003, "Success"},
    {7004, "[%1] %2"},
    {7005, "[%1] { Sending %2 Bytes Data ... }"},
    {7006, "[DNS %1] %2"},
    {7007, "[%1] Canceled while '%2'."},
    {7008, "Canceled while '%1'."},
    // SMTP step names (7200 + step), long list.
    {7200, "Undefined"},
    {7205, "SOCKSProlog"},
    {7210, "DNS"},
    {7215, "Connect"},
    {7220, "Helo"},
    {7225, "StartTLS"},
    {7227, "Auth"},
    {7230, "MailFrom"},
    {7240, "RCPTTo"},
    {7250, "Data"},
    {7260, "SendData"},
    {7270, "Quit"},
    {7280, "Done"},
    {7290, "SocketError"},
    {7291, "InitSocket"},
    {7292, "Data Chunk"},
    {7293, "Pre-Check"},
    {7294, "Auto DNS"},
    {7296, "Auto DNS OK"},
    {7297, "Init Error"},
    {7298, "Auto DNS Error"},
    {7299, "Timeout"},
    // Message states, long list.
    {7300, "Undefined"},
    {7301, "New Message"},
    {7302, "Message Sent"},
    {7303, "Invalid Mime"},
    {7304, "Disabled"},
    {7312, "Too much retries"},
    {7314, "Invalid address"},
    {7320, "Retry at"},
    {7321, "Pending"},
    // Connecting.
    {7500, "Can not connect to '%1'. Socket Error# '%2'. %3"},
    // SOCKS proxy.
    {9000, "[Proxy SOCKS %1:%2] OK"},
    {9001,
     "[Proxy SOCKS %1:%2] The connection request has failed or the proxy server has rejected it."},
    {9002, "[Proxy SOCKS %1:%2] The user/password combination was not accepted by the proxy."},
    {9003, "[Proxy SOCKS %1:%2] The selected authentication method was not accepted by the proxy."},
    // Cancelled.
    {9999, "Command Canceled"},
    // NetBIOS command results; 10002 serves every class.
    {10000, "Illegal Buffer Length"},
    {10001, "Illegal Command"},
    {10002, "Command Timed Out"},
    {10003, "Message Incomplete. Issue Another Command"},
    {10004, "Illegal Buffer Address"},
    {10005, "Session Number is Out of Range"},
    {10006, "No Resources Available"},
    {10007, "Session Closed"},
    {10008, "Command Cancelled"},
    {10009, "Duplicate Name"},
    {10010, "Name Table Full"},
    {10011, "No Deletions. 'Name' has Active Sessions"},
    {10012, "Local Session Table Full"},
    {10013, "Remote Session Table Full"},
    {10014, "Illegal Name Number"},
    {10015, "No Call Name"},
    {10016, "Cannot Put in NCB_NAME"},
    {10017, "Name in Use on Remote Computer"},
    {10018, "Name Deleted"},
    {10019, "Session Ended Abnormally"},
    {10020, "Name Conflict Detected"},
    {10021, "Interface Busy. IRET Before Retrying"},
    {10022, "Too Many Commands Outstanding. Retry Later"},
    {10023, "ncb_lana_num Field Invalid"},
    {10024, "Command Completed While Cancel Occurring"},
    {10025, "Command Not Valid to Cancel"},
    {10026, "Name Defined By Another Process"},
    {10027, "Environment Undefined. RESET Required"},
    {10028, "Required OS Resources Exhausted"},
    {10029, "Max Number Of Applications Exceeded"},
    {10030, "No saps Available for NetBIOS"},
    {10031, "Requested Resources are Not Available"},
    {10032, "Invalid NCB Address, or Length > Segment"},
    {10033, "Invalid NCB DDID"},
    {10034, "Lock of User Area Failed"},
    {10035, "NetBIOS Not Loaded"},
    {10036, "System Error"},
    {10037, "Asynchronous Command Is Not Yet Completed"},
    {10038, "Unknown Error"},
    // DNS response codes and resolver failures.
    {10100, "Success"},
    {10101, "Format error. The name server was unable to interpret the Query."},
    {10102,
     "Server Failure. Meaningful only for Responses from an authoritative name server. This code "
     "signifies that the domain name referenced in the Query does not exist."},
    {10103,
     "Name Error. Meaningful only for responses from an authoritative name server, this code "
     "signifies that the domain name referenced in the query does not exist."},
    {10104, "Not Implemented. The name server does not support the requested kind of Query."},
    {10105,
     "Refused. The name server refuses to perform the specified operation for policy reasons. For "
     "example, a name server may not wish to provide the information to the particular requester, "
     "or a name server may not wish to perform a particular operation (e.g, zone transfer) for a "
     "particular data."},
    {10106, "YXDomain. Name Exists when it should not."},
    {10107, "YXRRSet. RR Set Exists when it should not."},
    {10108, "NXRRSet. RR Set that should exist does not."},
    {10109, "NotAuth. Server Not Authoritative for zone."},
    {10110, "NotZone. Name not contained in zone."},
    {10111, "BADVERS. Bad OPT Version./BADSIG. TSIG Signature Failure."},
    {10112, "BADKEY. Key not recognized."},
    {10113, "BADTIME. Signature out of time window."},
    {10114, "BADMODE. Bad TKEY Mode."},
    {10115, "BADNAME. Duplicate key name."},
    {10116, "BADALG. Algorithm not supported."},
    {10117, "No DNS Entries found."},
    {10118, "Domain name must not be empty."},
    {10119, "Can not find DNS Server."},
    {10120, "Can not create a socket."},
    {10121, "DNS server for query was not found."},
    {10122, "Can not send data to DNS server."},
    {10123, "Can not retrieve data from DNS server."},
    {10124, "Timeout. DNS server does not answer."},
    {10125, "Can not initialize Winsock."},
    {10126, "No DNS Entries found."},
    {10127, "Unknown Error# %1."},
    {10128, "Process canceled by user request."},
    {10130, "Nothing To Do"},
    {10159, "No DNS Entries found."},
    // ICMP echo results.
    {10200, "Can not find host in DNS"},
    {10201, "Can not create ICMP handle"},
    {10202, "Buffer too Small"},
    {10203, "Destination Network Not Reachable"},
    {10204, "Destination Host Not Reachable"},
    {10205, "Destination Protocol Not Reachable"},
    {10206, "Destination Port Not Reachable"},
    {10207, "No Resources Available"},
    {10208, "Bad Option"},
    {10209, "Hardware Error"},
    {10210, "Packet too Big"},
    {10211, "Request Timed Out"},
    {10212, "Bad Request"},
    {10213, "Bad Route"},
    {10214, "TTL Expired in Transit"},
    {10215, "TTL Expired Reassembly"},
    {10216, "Parameter Problem"},
    {10217, "Source Quench"},
    {10218, "Option too Big"},
    {10219, "Bad Destination"},
    {10220, "Address Deleted."},
    {10221, "Spec MTU Change"},
    {10222, "MTU Change"},
    {10223, "Unload"},
    {10224, "General Failure"},
    // Time client.
    {11005, "Unknown time stamp received"},
});

constexpr bool InAscendingOrder() {
  for (std::size_t i = 1; i < kMessageTexts.size(); ++i) {
    if (kMessageTexts[i - 1].number >= kMessageTexts[i].number) {
      return false;
    }
  }
  return true;
}

static_assert(kMessageTexts.size() == 215);
static_assert(InAscendingOrder(), "the lookup is a binary search");

}  // namespace

std::string_view FindMessageText(std::int32_t number) {
  const auto found = std::ranges::lower_bound(kMessageTexts, number, {}, &MessageText::number);
  const bool exists = found != kMessageTexts.end() && found->number == number;
  return exists ? found->text : std::string_view();
}

}  // namespace netro

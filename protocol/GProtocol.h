// Method names, header names, codes and limits of the system's messages: one list for client, server and tests.
// A message is a GHTTPHeaders; see docs/architecture.md for who sends what to whom.
#pragma once

namespace GProtocol
{
// ---- Methods towards servers.
inline constexpr char16_t AUTHENTICATE[] = u"AUTHENTICATE";
inline constexpr char16_t STUN[] = u"STUN";
inline constexpr char16_t HOLEPUNCH[] = u"HOLEPUNCH";
inline constexpr char16_t OPENTURN[] = u"OPENTURN";
inline constexpr char16_t SENDUDP[] = u"SENDUDP";
inline constexpr char16_t PING[] = u"PING";
inline constexpr char16_t DEVICEGUID[] = u"DEVICEGUID";
inline constexpr char16_t REGISTER[] = u"REGISTER";
inline constexpr char16_t UNREGISTER[] = u"UNREGISTER";
inline constexpr char16_t GETBUDDYLIST[] = u"GETBUDDYLIST";
inline constexpr char16_t SETBUDDYLIST[] = u"SETBUDDYLIST";
inline constexpr char16_t ADDBUDDY[] = u"ADDBUDDY";
inline constexpr char16_t BUGREPORT[] = u"BUGREPORT";
inline constexpr char16_t LOGFILE[] = u"LOGFILE";
// ---- Requests for a contact, between the signalling host and devices that named CONTACTS among the Capabilities of their REGISTER.
// CONTACTREQUEST comes from the server: From, To, State ("pending", or "answered" when another device has answered); the device says 200.
// CONTACTANSWER goes to it: From, From-Device-GUID, Buddy-GUID, Answer ("refuse" or "block"); 200. ADDBUDDY accepts.
inline constexpr char16_t CONTACTREQUEST[] = u"CONTACTREQUEST";
inline constexpr char16_t CONTACTANSWER[] = u"CONTACTANSWER";
// ---- Methods between devices.
inline constexpr char16_t INVITE[] = u"INVITE";
inline constexpr char16_t ACK[] = u"ACK";
inline constexpr char16_t UPDATE[] = u"UPDATE";
inline constexpr char16_t DEVICEBROADCAST[] = u"DEVICEBROADCAST";
inline constexpr char16_t BYE[] = u"BYE";

// ---- Headers.
inline constexpr char16_t FROM[] = u"From";
inline constexpr char16_t FROM_DEVICE_GUID[] = u"From-Device-GUID";
inline constexpr char16_t TO[] = u"To";
inline constexpr char16_t CSEQ[] = u"CSeq";
inline constexpr char16_t CSEQ_GROUP[] = u"CSeq-Group";
inline constexpr char16_t PASSWORD[] = u"Password";
inline constexpr char16_t EMAIL[] = u"Email";
inline constexpr char16_t VERSION[] = u"Version";
inline constexpr char16_t USER_GUID[] = u"User-GUID";
inline constexpr char16_t DEVICE_GUID[] = u"Device-GUID";
inline constexpr char16_t BUDDY_GUID[] = u"Buddy-GUID";
inline constexpr char16_t BUDDY_LIST[] = u"Buddy-List";
inline constexpr char16_t DEVICE_LIST[] = u"Device-List";
inline constexpr char16_t ROUTE_LIST[] = u"Route-List";
inline constexpr char16_t TRY_ROUTE_LIST[] = u"Try-Route-List";
inline constexpr char16_t STUN_HOST_LIST[] = u"STUN-Host-List";
inline constexpr char16_t SIP_HOST_LIST[] = u"SIP-Host-List";
inline constexpr char16_t TURN_HOST[] = u"TURN-Host";
inline constexpr char16_t LOGFILE_HOST[] = u"Logfile-Host";
inline constexpr char16_t UPGRADE_URL[] = u"Upgrade-URL";
inline constexpr char16_t UPGRADE_NAME[] = u"Upgrade-Name";
inline constexpr char16_t UPGRADE_PRIORITY[] = u"Upgrade-Priority";
inline constexpr char16_t GLOBAL_HOST[] = u"Global-Host";
inline constexpr char16_t REMOTE_HOST[] = u"Remote-Host";
inline constexpr char16_t OBSERVED_HOST[] = u"Observed-Host";
inline constexpr char16_t REPORTED_HOST[] = u"Reported-Host";
inline constexpr char16_t INDIRECT_HOST_LIST[] = u"Indirect-Host-List";
inline constexpr char16_t DELAY[] = u"Delay";
inline constexpr char16_t FILENAME[] = u"Filename";
inline constexpr char16_t TEXT[] = u"Text";
inline constexpr char16_t CAPABILITIES[] = u"Capabilities"; // A list.
inline constexpr char16_t STATE[] = u"State";
inline constexpr char16_t ANSWER[] = u"Answer";
inline constexpr char16_t CONTENT_LENGTH[] = u"Content-Length";

// ---- Values.
inline constexpr char16_t CAPABILITY_CONTACTS[] = u"contacts";
inline constexpr char16_t PENDING[] = u"pending";
inline constexpr char16_t ANSWERED[] = u"answered";
inline constexpr char16_t REFUSE[] = u"refuse";
inline constexpr char16_t BLOCK[] = u"block";
} // namespace GProtocol

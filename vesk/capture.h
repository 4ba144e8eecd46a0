// The capture: what goes over the wire, among the lines of the library's trace, with key values and files of keys
// masked. vesk decode reads it.
//
// The library's trace has requests and the names of fields, but neither the bytes of replies nor what stands outside
// the counted frames. They are taken where the library calls the connection layer: the command is linked with functions
// of its own in front of three of them.
#pragma once

namespace command {

// The source path of the capture's lines, and their messages. What was sent or received is a dump under its label, or
// the label, kMasked and the length alone.
inline constexpr const char *kCapturePath = "vesk/capture";
inline constexpr const char *kSentLabel = "sent";
inline constexpr const char *kReceivedLabel = "received";
inline constexpr const char *kMasked = ", masked";
inline constexpr const char *kConnectionForm = "connection to %s port %s, status %d";
inline constexpr const char *kSendingForm = "sending, status %d";      // when it failed
inline constexpr const char *kReceivingForm = "receiving, status %d";  // when it failed

// Switches the capture on or off, for connections that are opened from then on.
void set_capture(bool on);

}  // namespace command

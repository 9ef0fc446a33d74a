#pragma once
// The names the command treats specially, in one place.

namespace corvo {

constexpr char kHost[] = "host";          // the device as a whole
constexpr char kEthernetPort[] = "eth0";  // the wired port (a hardware feature)
constexpr char kWifiPort[] = "wlan0";     // the wireless port, when it exists
constexpr char kDialupPort[] = "ppp0";    // the dial-up link over the modem
constexpr char kModemDevice[] = "/dev/modem";

}  // namespace corvo

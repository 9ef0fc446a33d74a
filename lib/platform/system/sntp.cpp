#include "lib/platform/system/sntp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <system_error>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace corvo {

namespace {

using Steady = std::chrono::steady_clock;
using std::chrono::duration_cast;
using std::chrono::nanoseconds;

constexpr std::size_t kPacketSize = 48;
constexpr std::int64_t kNtpEpochToUnix = 2208988800;  // seconds from 1900 to 1970
constexpr unsigned char kVersion = 4;
constexpr unsigned char kModeClient = 3;
constexpr unsigned char kModeServer = 4;
// Random low bits of our transmit time (about 4 ms): the reply must echo them.
constexpr std::uint32_t kNonceMask = 0x00FFFFFF;

std::string ErrnoText(int error) { return std::generic_category().message(error); }

class Socket {
 public:
  Socket() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (m_fd >= 0) close(m_fd);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

// getaddrinfo blocks as long as the resolver likes (several servers, each
// tried for seconds), and nothing can interrupt it. So the lookup is glibc's
// asynchronous one (getaddrinfo_a, on glibc's own helper thread), waited for
// with a deadline; no thread or process of ours is left behind. A request
// the resolver has already started cannot be cancelled and writes its result
// when it ends, so it must outlive us: it goes on a list never freed, where
// it stays reachable (a few hundred bytes, once per lookup that timed out).
struct Lookup {
  std::string name;
  addrinfo hints{};
  gaicb request{};
  Lookup* next = nullptr;
};
std::atomic<Lookup*> g_abandoned_lookups{nullptr};

void Abandon(Lookup* lookup) {
  lookup->next = g_abandoned_lookups.load();
  while (!g_abandoned_lookups.compare_exchange_weak(lookup->next, lookup)) {
  }
}

// Fills addresses with the server's IPv4 addresses; returns an error text.
std::string Resolve(const std::string& server, std::vector<in_addr>& addresses) {
  in_addr address{};
  if (inet_pton(AF_INET, server.c_str(), &address) == 1) {
    addresses.push_back(address);
    return {};
  }
  auto* lookup = new Lookup;
  lookup->name = server;
  lookup->hints.ai_family = AF_INET;
  lookup->hints.ai_socktype = SOCK_DGRAM;
  lookup->request.ar_name = lookup->name.c_str();
  lookup->request.ar_request = &lookup->hints;
  gaicb* list[] = {&lookup->request};
  int status = getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr);
  if (status != 0) {
    delete lookup;
    return "cannot look up " + server + ": " + gai_strerror(status);
  }
  const auto deadline = Steady::now() + kNtpLookupLimit;
  while ((status = gai_error(&lookup->request)) == EAI_INPROGRESS) {
    const std::int64_t left = duration_cast<nanoseconds>(deadline - Steady::now()).count();
    if (left <= 0) break;
    const timespec wait{static_cast<time_t>(left / 1000000000),
                        static_cast<long>(left % 1000000000)};
    gai_suspend(list, 1, &wait);
  }
  if (status == EAI_INPROGRESS) {
    const int cancelled = gai_cancel(&lookup->request);
    if (cancelled != EAI_ALLDONE) {
      if (cancelled == EAI_CANCELED)
        delete lookup;
      else
        Abandon(lookup);
      return "looking up " + server + " took too long";
    }
    status = gai_error(&lookup->request);
  }
  if (status == 0) {
    for (const addrinfo* ai = lookup->request.ar_result; ai != nullptr; ai = ai->ai_next) {
      if (ai->ai_family != AF_INET || ai->ai_addrlen < sizeof(sockaddr_in)) continue;
      sockaddr_in found{};
      std::memcpy(&found, ai->ai_addr, sizeof found);
      addresses.push_back(found.sin_addr);
    }
    freeaddrinfo(lookup->request.ar_result);
  }
  delete lookup;
  if (status != 0) return "cannot look up " + server + ": " + gai_strerror(status);
  if (addresses.empty()) return server + " has no IPv4 address";
  return {};
}

std::uint32_t Read32(const unsigned char* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         std::uint32_t{p[3]};
}

void Write32(unsigned char* p, std::uint32_t value) {
  for (int i = 3; i >= 0; --i, value >>= 8) p[i] = static_cast<unsigned char>(value);
}

// Nanoseconds since the Unix epoch of an NTP timestamp. Its seconds wrap in
// 2036: with the top bit clear the time lies in the next era (2036 to 2104).
std::int64_t UnixNanoseconds(const unsigned char* timestamp) {
  const std::uint32_t ntp_seconds = Read32(timestamp);
  std::int64_t seconds = std::int64_t{ntp_seconds} - kNtpEpochToUnix;
  if ((ntp_seconds & 0x80000000u) == 0) seconds += std::int64_t{1} << 32;
  const std::uint64_t fraction = Read32(timestamp + 4);
  return seconds * 1000000000 + static_cast<std::int64_t>((fraction * 1000000000u) >> 32);
}

// Our transmit time from the wall clock, with random low bits; false when the clock
// cannot be read.
bool WriteRequestTime(unsigned char* timestamp) {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  const std::int64_t seconds = std::int64_t{now.tv_sec} + kNtpEpochToUnix;
  const std::uint64_t fraction = (static_cast<std::uint64_t>(now.tv_nsec) << 32) / 1000000000u;
  std::uint32_t nonce = 0;
  // Early in boot the kernel's pool may not be ready: fall back to the clock.
  if (getrandom(&nonce, sizeof nonce, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof nonce)) {
    const auto ticks = static_cast<std::uint64_t>(Steady::now().time_since_epoch().count());
    nonce = static_cast<std::uint32_t>(ticks * 2654435761u);
  }
  Write32(timestamp, static_cast<std::uint32_t>(seconds));
  Write32(timestamp + 4,
          (static_cast<std::uint32_t>(fraction) & ~kNonceMask) | (nonce & kNonceMask));
  return true;
}

enum class Verdict { kValid, kKissOfDeath, kInvalid };

// Judges a datagram against our request; reason says what is wrong with it.
Verdict Judge(const unsigned char* reply, ssize_t size, const unsigned char* request,
              const char*& reason) {
  static const unsigned char kZero[8] = {};
  reason = nullptr;
  if (size < static_cast<ssize_t>(kPacketSize))
    reason = "too short";
  else if ((reply[0] & 7) != kModeServer)
    reason = "not a server reply";
  else if (std::memcmp(reply + 24, request + 40, 8) != 0)
    reason = "not an answer to our request";
  else if (reply[1] == 0)
    return Verdict::kKissOfDeath;
  else if ((reply[0] >> 6) == 3 || reply[1] > 15)
    reason = "server not synchronised";
  else if (std::memcmp(reply + 40, kZero, 8) == 0)
    reason = "no transmit time";
  return reason ? Verdict::kInvalid : Verdict::kValid;
}

// The kiss code (reference identifier) of a kiss-of-death, printable only.
std::string KissCode(const unsigned char* reply) {
  std::string code;
  for (int i = 12; i < 16 && reply[i] != 0; ++i) {
    if (reply[i] > 0x20 && reply[i] < 0x7f) code += static_cast<char>(reply[i]);
  }
  return code.empty() ? "no code" : code;
}

NetworkTimeResult Query(const std::string& server, const SntpOptions& options) {
  const auto start = Steady::now();
  if (server.empty()) return {std::nullopt, "no time server given"};
  std::vector<in_addr> addresses;
  std::string problem = Resolve(server, addresses);
  if (!problem.empty()) return {std::nullopt, problem};
  const auto query_deadline = start + kNtpQueryLimit - std::chrono::milliseconds(10);

  std::string where = server;
  for (int attempt = 0; attempt < kNtpAttempts && Steady::now() < query_deadline; ++attempt) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(options.port);
    // A pool name gives several servers: each attempt asks the next.
    to.sin_addr = addresses[static_cast<std::size_t>(attempt) % addresses.size()];
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &to.sin_addr, text, sizeof text);
    where = server == text ? server : server + " (" + text + ")";

    Socket socket;
    if (socket.fd() < 0) return {std::nullopt, "cannot open a socket: " + ErrnoText(errno)};
    unsigned char request[kPacketSize] = {};
    request[0] = static_cast<unsigned char>((kVersion << 3) | kModeClient);
    if (!WriteRequestTime(request + 40)) {
      return {std::nullopt, "cannot read the clock: " + ErrnoText(errno)};
    }
    // Connected, so that only the server's datagrams (and its errors) reach us.
    if (connect(socket.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 ||
        send(socket.fd(), request, sizeof request, 0) != static_cast<ssize_t>(sizeof request)) {
      problem = "cannot reach " + where + ": " + ErrnoText(errno);
      continue;
    }
    const auto sent = Steady::now();
    const auto attempt_deadline = std::min(sent + options.attempt_limit, query_deadline);
    // Invalid datagrams do not end the attempt: a valid reply may follow.
    for (;;) {
      const std::int64_t left =
          duration_cast<nanoseconds>(attempt_deadline - Steady::now()).count();
      if (left <= 0) break;
      pollfd readable{socket.fd(), POLLIN, 0};
      if (poll(&readable, 1, static_cast<int>((left + 999999) / 1000000)) <= 0) continue;
      unsigned char reply[256];
      const ssize_t size = recv(socket.fd(), reply, sizeof reply, MSG_DONTWAIT);
      const auto arrived = Steady::now();
      if (size < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
        problem = "no reply from " + where + ": " + ErrnoText(errno);
        break;
      }
      const char* reason = nullptr;
      const Verdict verdict = Judge(reply, size, request, reason);
      if (verdict == Verdict::kKissOfDeath) {
        return {std::nullopt, "kiss-of-death from " + where + ": " + KissCode(reply)};
      }
      if (verdict == Verdict::kInvalid) {
        problem = "bad reply from " + where + ": " + reason;
        continue;
      }
      // Half the round trip, without the time the server held the request,
      // is the way back; then the time since the reply came.
      const std::int64_t transmit = UnixNanoseconds(reply + 40);
      const std::int64_t round_trip = duration_cast<nanoseconds>(arrived - sent).count();
      std::int64_t held = transmit - UnixNanoseconds(reply + 32);
      if (held < 0 || held > round_trip) held = 0;
      return {transmit + (round_trip - held) / 2 +
                  duration_cast<nanoseconds>(Steady::now() - arrived).count(),
              {}};
    }
  }
  return {std::nullopt, problem.empty() ? "no reply from " + where : problem};
}

}  // namespace

NetworkTimeResult QueryNetworkTime(const std::string& server, const SntpOptions& options) {
  try {
    return Query(server, options);
  } catch (const std::exception& e) {
    return {std::nullopt, std::string("network time query failed: ") + e.what()};
  } catch (...) {
    return {std::nullopt, "network time query failed"};
  }
}

}  // namespace corvo

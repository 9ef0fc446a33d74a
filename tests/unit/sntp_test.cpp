#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <string>
#include <thread>
#include <time.h>
#include <unistd.h>

#include "lib/platform/system/sntp.h"

namespace {

using namespace std::chrono_literals;

enum class Answer { kGood, kSlow, kStrayFirst, kKissOfDeath, kNoTransmit, kLeap3, kSilent };

std::int64_t RealtimeNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void PutTimestamp(unsigned char* p, std::int64_t unix_ns) {
  const std::uint32_t seconds = static_cast<std::uint32_t>(unix_ns / 1000000000 + 2208988800);
  const std::uint32_t fraction = static_cast<std::uint32_t>(
      (static_cast<std::uint64_t>(unix_ns % 1000000000) << 32) / 1000000000);
  const std::uint32_t words[2] = {htonl(seconds), htonl(fraction)};
  std::memcpy(p, words, sizeof words);
}

// An NTP server on 127.0.0.1 answering as told, with this machine's clock moved by offset_ns.
class Responder {
 public:
  Responder(Answer answer, std::int64_t offset_ns) : m_answer(answer), m_offset_ns(offset_ns) {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    if (bind(m_fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
      m_port = ntohs(address.sin_port);
    }
    m_thread = std::thread([this] { Serve(); });
  }
  ~Responder() {
    m_stop = true;
    m_thread.join();
    close(m_fd);
  }
  std::uint16_t port() const { return m_port; }
  int requests() const { return m_requests; }

 private:
  void Serve() {
    while (!m_stop) {
      pollfd readable{m_fd, POLLIN, 0};
      unsigned char request[48], reply[48] = {};
      sockaddr_in from{};
      socklen_t from_size = sizeof from;
      auto* peer = reinterpret_cast<sockaddr*>(&from);
      if (poll(&readable, 1, 20) <= 0 || recvfrom(m_fd, request, 48, 0, peer, &from_size) != 48) {
        continue;
      }
      ++m_requests;
      const bool kiss = m_answer == Answer::kKissOfDeath, slow = m_answer == Answer::kSlow;
      if (m_answer == Answer::kSilent) continue;
      // A slow network and a slow server: 60 ms each way, 100 ms inside.
      if (slow) std::this_thread::sleep_for(200ms);
      reply[0] = static_cast<unsigned char>(((m_answer == Answer::kLeap3 || kiss ? 3 : 0) << 6) |
                                            (4 << 3) | 4);
      reply[1] = kiss ? 0 : 2;
      std::memcpy(reply + 12, kiss ? "RATE" : "GPS", 4);
      std::memcpy(reply + 24, request + 40, 8);
      PutTimestamp(reply + 32, RealtimeNs() + m_offset_ns);
      if (slow) std::this_thread::sleep_for(100ms);
      if (m_answer != Answer::kNoTransmit) PutTimestamp(reply + 40, RealtimeNs() + m_offset_ns);
      if (slow) std::this_thread::sleep_for(200ms);
      if (m_answer == Answer::kStrayFirst) {
        reply[31] ^= 1;  // not the request this server was sent
        sendto(m_fd, reply, sizeof reply, 0, peer, from_size);
        reply[31] ^= 1;
        std::this_thread::sleep_for(200ms);
        PutTimestamp(reply + 40, RealtimeNs() + m_offset_ns);
      }
      sendto(m_fd, reply, sizeof reply, 0, peer, from_size);
    }
  }

  const Answer m_answer;
  const std::int64_t m_offset_ns;
  const int m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::uint16_t m_port = 0;
  std::atomic<int> m_requests{0};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

struct SntpCase {
  const char* name;
  const char* server;
  Answer answer;
  std::int64_t offset_s;
  std::chrono::milliseconds attempt_limit;
  const char* error;  // nullptr: a time is expected
  int requests;
};

class Sntp : public ::testing::TestWithParam<SntpCase> {};

TEST_P(Sntp, AnswersOrExplains) {
  const SntpCase& c = GetParam();
  Responder responder(c.answer, c.offset_s * 1000000000);
  ASSERT_NE(responder.port(), 0);
  corvo::SntpOptions options;
  options.port = responder.port();
  options.attempt_limit = c.attempt_limit;

  const auto start = std::chrono::steady_clock::now();
  const corvo::NetworkTimeResult result = corvo::QueryNetworkTime(c.server, options);
  const std::int64_t now_ns = RealtimeNs();
  const auto took = std::chrono::steady_clock::now() - start;

  EXPECT_EQ(responder.requests(), c.requests);
  EXPECT_LT(took, 5s);
  EXPECT_EQ(result.error, c.error ? c.error : "");
  EXPECT_EQ(result.time_ns.has_value(), c.error == nullptr);
  // Loose enough for a loaded machine; a wrong era or a missed correction is far off.
  if (result.time_ns) {
    EXPECT_NEAR(*result.time_ns - now_ns, c.offset_s * 1000000000, 50000000);
  }
  // Silence costs every attempt its whole limit.
  if (c.answer == Answer::kSilent) {
    EXPECT_GE(took, 3 * c.attempt_limit);
  }
}

constexpr std::int64_t kTwentyYears = 631152000;  // from now: past the NTP era of 2036
constexpr auto kQuick = 100ms;
constexpr auto kFull = corvo::kNtpAttemptLimit;

// What chronyd and the command tests' responder cannot send.
INSTANTIATE_TEST_SUITE_P(
    Replies, Sntp,
    ::testing::Values(
        SntpCase{"NextEraByName", "localhost", Answer::kGood, kTwentyYears, kFull, nullptr, 1},
        SntpCase{"SlowNetworkAndServer", "127.0.0.1", Answer::kSlow, 0, kFull, nullptr, 1},
        SntpCase{"StrayPacketFirst", "127.0.0.1", Answer::kStrayFirst, 0, kFull, nullptr, 1},
        SntpCase{"KissOfDeath", "localhost", Answer::kKissOfDeath, 0, kFull,
                 "kiss-of-death from localhost (127.0.0.1): RATE", 1},
        SntpCase{"NoTransmitTime", "127.0.0.1", Answer::kNoTransmit, 0, kQuick,
                 "bad reply from 127.0.0.1: no transmit time", 3},
        SntpCase{"Leap3", "127.0.0.1", Answer::kLeap3, 0, kQuick,
                 "bad reply from 127.0.0.1: server not synchronised", 3},
        SntpCase{"Silent", "127.0.0.1", Answer::kSilent, 0, kFull, "no reply from 127.0.0.1", 3}),
    [](const auto& case_info) { return std::string(case_info.param.name); });

}  // namespace

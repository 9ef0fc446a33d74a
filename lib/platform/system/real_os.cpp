#include "lib/platform/system/real_os.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <ifaddrs.h>
#include <mntent.h>
#include <netinet/in.h>
#include <stdexcept>
#include <map>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <utility>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/detached_process.h"
#include "lib/platform/system/host_name.h"
#include "lib/platform/system/net.h"
#include "lib/platform/system/network_ports.h"
#include "lib/platform/system/process_control.h"
#include "lib/platform/system/route_table.h"
#include "lib/platform/system/sntp.h"
#include "lib/platform/system/spawn_process.h"

namespace corvo {

namespace {

// The bytes of an IPv4 or IPv6 socket address; other families carry none here.
std::vector<std::uint8_t> AddressBytes(const struct sockaddr* address) {
  if (address == nullptr) return {};
  std::vector<std::uint8_t> bytes;
  if (address->sa_family == AF_INET) {
    struct sockaddr_in in;
    std::memcpy(&in, address, sizeof in);
    const auto* first = reinterpret_cast<const std::uint8_t*>(&in.sin_addr);
    bytes.assign(first, first + sizeof in.sin_addr);
  } else if (address->sa_family == AF_INET6) {
    struct sockaddr_in6 in6;
    std::memcpy(&in6, address, sizeof in6);
    const auto* first = reinterpret_cast<const std::uint8_t*>(&in6.sin6_addr);
    bytes.assign(first, first + sizeof in6.sin6_addr);
  }
  return bytes;
}

// __DATE__ is "Mmm dd yyyy", __TIME__ "hh:mm:ss", both in the builder's local
// time; taken as UTC, which is close enough to tell a reset clock from a set one.
std::int64_t ParseBuildTime(const char* date, const char* clock) {
  static const char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  char month[4] = {};
  int day = 0, year = 0, hour = 0, minute = 0, second = 0;
  if (std::sscanf(date, "%3s %d %d", month, &day, &year) != 3) return 0;
  if (std::sscanf(clock, "%d:%d:%d", &hour, &minute, &second) != 3) return 0;
  const char* found = std::strstr(kMonths, month);
  if (found == nullptr || std::strlen(month) != 3) return 0;
  struct tm fields;
  std::memset(&fields, 0, sizeof fields);
  fields.tm_year = year - 1900;
  fields.tm_mon = static_cast<int>((found - kMonths) / 3);
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  return static_cast<std::int64_t>(timegm(&fields));
}

}  // namespace

int RealPrograms::Run(const std::string& program, const std::vector<std::string>& args,
                      const ProgramOptions& options) {
  SpawnProcess process(program, args);
  process.Execute(SpawnProcess::kSystemToolFlags |
                  (options.new_session ? SpawnProcess::kNewSession : 0));
  return process.Wait();
}

std::optional<pid_t> RealPrograms::ReadPidFile(const std::string& path, const std::string& name) {
  const pid_t pid = corvo::ReadPidFile(path, name);
  if (pid < 0) return std::nullopt;
  return pid;
}

void RealPrograms::KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) {
  corvo::KillProcessAndWait(pid, signal, timeout_us);
}

pid_t RealPrograms::StartDetached(const std::vector<std::string>& argv,
                                  const std::string& pid_file) {
  return corvo::StartDetached(argv, pid_file);
}

void RealPrograms::RunDetached(const std::function<void()>& task) { StartDetachedTask(task); }

bool RealNetworkState::InterfaceHasLink(const std::string& ifname) {
  return net::InterfaceHasLink(ifname.c_str());
}

bool RealNetworkState::InterfaceIsReady(const std::string& ifname) {
  return net::InterfaceIsReady(ifname.c_str());
}

bool RealNetworkState::HasDefaultRoute(const std::string& ifname) {
  return net::FindDefaultGateway(ifname) != 0;
}

void RealNetworkState::SetIpForwarding(bool on) { net::SetIpForwarding(on); }

std::vector<std::string> RealNetworkState::NetworkPorts() {
  std::vector<std::string> ports;
  ScanNetworkPorts([&](const std::string& name) {
    ports.push_back(name);
    return false;
  });
  return ports;
}

bool RealNetworkState::IsBootedFromNfs() { return IsRootOnNfs(); }

std::vector<InterfaceAddress> RealNetworkState::InterfaceAddresses(const std::string& ifname) {
  struct ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) throw std::runtime_error("Failed to get IP address list");
  const std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> owner(list, freeifaddrs);
  std::vector<InterfaceAddress> entries;
  for (const struct ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_name == nullptr || ifname != entry->ifa_name) continue;
    InterfaceAddress item;
    item.family = entry->ifa_addr != nullptr ? entry->ifa_addr->sa_family : 0;
    item.address = AddressBytes(entry->ifa_addr);
    item.netmask_family = entry->ifa_netmask != nullptr ? entry->ifa_netmask->sa_family : 0;
    item.netmask = AddressBytes(entry->ifa_netmask);
    entries.push_back(std::move(item));
  }
  return entries;
}

void RealNetworkState::SetMacAddress(const std::string& ifname, const MacAddress& address) {
  SetInterfaceMacAddress(ifname, address);
}

std::unique_ptr<VlanLinks> RealNetworkState::OpenVlanLinks() { return OpenNetlinkVlanLinks(); }

void RealNetworkState::RemoveAddresses(const std::string& ifname) {
  RemoveNetlinkAddresses(ifname);
}

namespace {

// write(2) until all is written.
bool WriteAll(int fd, const std::string& content) {
  const char* next = content.data();
  std::size_t left = content.size();
  while (left > 0) {
    const ssize_t written = write(fd, next, left);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    next += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

void RealFiles::Replace(const std::string& path, const std::string& content, mode_t mode) {
  const std::string::size_type slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  // Beside the file, so that the rename stays within one file system.
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) throw ErrnoException(errno, "write " + path);
  // mkostemp made it 0600; the wanted mode holds before the first byte.
  int error = 0;
  if (fchmod(fd, mode) != 0 || !WriteAll(fd, content) || fsync(fd) != 0) error = errno;
  if (close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    unlink(temporary.c_str());
    throw ErrnoException(error, "write " + path);
  }
  // The rename itself must survive a power cut too.
  const int dir = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0) throw ErrnoException(errno, "open " + directory);
  if (fsync(dir) != 0) error = errno;
  close(dir);
  if (error != 0) throw ErrnoException(error, "fsync " + directory);
}

std::optional<std::string> RealFiles::Read(const std::string& path) {
  std::ifstream in(path, std::ios::in | std::ios::binary);
  if (!in) return std::nullopt;
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return content;
}

std::vector<std::string> RealFiles::List(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (const struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  return names;
}

void RealFiles::Write(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::out | std::ios::trunc);
  out << text;
}

bool RealFiles::Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

void RealFiles::Remove(const std::string& path) { unlink(path.c_str()); }

void RealFiles::MakeDirectory(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0) throw ErrnoException(errno, "mkdir " + path);
}

namespace {

struct LockFile {
  int fd = -1;
  int holders = 0;
};

// The locks this process holds, by path.
std::mutex g_locks_mutex;
std::map<std::string, LockFile> g_locks;

class HeldLockFile : public HeldLock {
 public:
  explicit HeldLockFile(std::string path) : m_path(std::move(path)) {}
  ~HeldLockFile() override {
    const std::lock_guard<std::mutex> guard(g_locks_mutex);
    LockFile& lock = g_locks[m_path];
    if (--lock.holders == 0) {
      close(lock.fd);  // lets go of the lock
      g_locks.erase(m_path);
    }
  }

 private:
  std::string m_path;
};

}  // namespace

std::unique_ptr<HeldLock> RealLocks::Acquire(const std::string& path,
                                             std::chrono::milliseconds limit,
                                             const std::function<void()>& waiting) {
  {
    const std::lock_guard<std::mutex> guard(g_locks_mutex);
    const auto held = g_locks.find(path);
    if (held != g_locks.end()) {
      ++held->second.holders;
      return std::make_unique<HeldLockFile>(path);
    }
  }
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) throw ErrnoException(errno, path);
  // Polled rather than waited for in flock: the wait must have an end.
  const auto deadline = std::chrono::steady_clock::now() + limit;
  bool told = false;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    if (error != EWOULDBLOCK && error != EINTR) {
      close(fd);
      throw ErrnoException(error, "flock " + path);
    }
    if (!told) {
      waiting();
      told = true;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      close(fd);
      return nullptr;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const std::lock_guard<std::mutex> guard(g_locks_mutex);
  g_locks[path] = LockFile{fd, 1};
  return std::make_unique<HeldLockFile>(path);
}

std::chrono::steady_clock::time_point RealClock::Now() { return std::chrono::steady_clock::now(); }

void RealClock::Sleep(std::chrono::microseconds duration) { std::this_thread::sleep_for(duration); }

// Past 2038 a 32-bit time_t cannot hold the clock: the build makes it 64 bits wide everywhere.
static_assert(sizeof(time_t) == 8, "time_t must be 64 bits wide (_TIME_BITS=64)");

std::int64_t RealSystemClock::RealtimeMicroseconds() {
  struct timespec now;
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) throw ErrnoException(errno, "clock_gettime");
  return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void RealSystemClock::SetRealtime(std::int64_t seconds, long microseconds) {
  struct timeval value;
  value.tv_sec = seconds;
  value.tv_usec = microseconds;
  if (settimeofday(&value, nullptr) != 0) throw ErrnoException(errno, "settimeofday");
}

bool RealSystemClock::TimeIsSet() { return RealtimeMicroseconds() / 1000000 >= BuildTimeSeconds(); }

NetworkTimeResult RealNetworkTimeSource::Query(const std::string& server) {
  return QueryNetworkTime(server);
}

std::string RealHostNames::GetHostName() { return corvo::GetHostName(); }

void RealHostNames::SetHostName(const std::string& name) { corvo::SetHostName(name); }

std::int64_t BuildTimeSeconds() {
  static const std::int64_t built = ParseBuildTime(__DATE__, __TIME__);
  return built;
}

bool IsRootOnNfs(const std::string& mounts_path) {
  std::FILE* mounts = setmntent(mounts_path.c_str(), "re");
  if (mounts == nullptr) return false;
  bool nfs = false;
  while (const struct mntent* entry = getmntent(mounts)) {
    if (std::string(entry->mnt_dir) == "/" && std::string(entry->mnt_type) == "nfs") {
      nfs = true;
      break;
    }
  }
  endmntent(mounts);
  return nfs;
}

}  // namespace corvo

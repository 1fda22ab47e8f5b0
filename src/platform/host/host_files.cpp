#include "platform/host/host_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

namespace mirlo::host {
namespace {

std::filesystem::path home() {
  const char* h = std::getenv("HOME");
  return h && *h ? std::filesystem::path(h) : std::filesystem::path(".");
}

// An XDG base directory must be absolute; anything else is ignored as the convention says.
std::filesystem::path xdg(const char* variable, const std::filesystem::path& fallback) {
  const char* value = std::getenv(variable);
  if (value && *value == '/') return std::filesystem::path(value) / "mirlo";
  return home() / fallback / "mirlo";
}

bool writeAll(int fd, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

std::filesystem::path configDirectory() { return xdg("XDG_CONFIG_HOME", ".config"); }
std::filesystem::path dataDirectory() { return xdg("XDG_DATA_HOME", ".local/share"); }

std::optional<std::string> readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return bytes.str();
}

bool replaceFileAtomically(const std::filesystem::path& path, const std::string& bytes) {
  const std::filesystem::path directory = path.parent_path();
  std::error_code ec;
  if (!std::filesystem::exists(directory, ec)) {
    std::filesystem::create_directories(directory, ec);
    if (ec) return false;
    ::chmod(directory.c_str(), 0700);
  }
  std::string temporary = (directory / ("." + path.filename().string() + ".XXXXXX")).string();
  int fd = ::mkstemp(temporary.data());  // created with mode 0600
  if (fd < 0) return false;
  bool ok = ::fchmod(fd, 0600) == 0 && writeAll(fd, bytes) && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  // The rename itself reaches the disk only with its directory.
  int dirFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    ::fsync(dirFd);
    ::close(dirFd);
  }
  return true;
}

std::optional<std::filesystem::path> keepAside(const std::filesystem::path& path) {
  const std::string stamp = std::to_string(static_cast<long long>(std::time(nullptr)));
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::filesystem::path target = path;
    target += ".corrupt-" + stamp + (attempt ? "-" + std::to_string(attempt) : "");
    std::error_code ec;
    if (std::filesystem::exists(target, ec)) continue;
    if (::rename(path.c_str(), target.c_str()) == 0) return target;
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace mirlo::host

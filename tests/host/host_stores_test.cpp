// The stores the program uses on a Linux host: the settings file, the file that holds the session
// when there is no Secret Service, and the Secret Service itself.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <fstream>

#include "account/keychain.h"
#include "platform/host/file_defaults.h"
#include "platform/host/file_secret_store.h"
#include "platform/host/host_files.h"
#include "platform/host/secret_service_store.h"

namespace mirlo::host {
namespace {

namespace fs = std::filesystem;

class TempDir {
 public:
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "mirlo-host-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

unsigned modeOf(const fs::path& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return 0;
  return st.st_mode & 0777;
}

void writeText(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::vector<fs::path> filesIn(const fs::path& directory) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(directory)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

TEST(HostDirectories, FollowTheXdgVariablesElseTheHomeDirectory) {
  const char* savedHome = std::getenv("HOME");
  const std::string home = savedHome ? savedHome : "";
  ::setenv("HOME", "/home/lea", 1);
  ::setenv("XDG_CONFIG_HOME", "/x/config", 1);
  ::setenv("XDG_DATA_HOME", "relative/is/ignored", 1);
  EXPECT_EQ(configDirectory(), fs::path("/x/config/mirlo"));
  EXPECT_EQ(dataDirectory(), fs::path("/home/lea/.local/share/mirlo"));
  ::unsetenv("XDG_CONFIG_HOME");
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(configDirectory(), fs::path("/home/lea/.config/mirlo"));
  ::setenv("HOME", home.c_str(), 1);
}

TEST(FileDefaults, ASecondLaunchReadsWhatTheFirstWrote) {
  TempDir dir;
  const fs::path file = dir.path() / "config" / "mirlo" / "defaults.json";
  {
    FileDefaults defaults(file);
    EXPECT_FALSE(defaults.hasObject("onboarded"));
    EXPECT_FALSE(defaults.boolForKey("onboarded"));
    EXPECT_FALSE(fs::exists(file)) << "reading alone creates nothing";
    defaults.setBool("onboarded", true);
    defaults.setBool("popupEnabled", false);
    defaults.setString("deviceId", "0A1B2C3D-0000-4000-8000-000000000000");
  }
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(modeOf(file.parent_path()), 0700u);
  EXPECT_EQ(filesIn(file.parent_path()), std::vector<fs::path>{file}) << "no temporary file is left behind";
  FileDefaults again(file);
  EXPECT_TRUE(again.boolForKey("onboarded"));
  EXPECT_TRUE(again.hasObject("popupEnabled"));
  EXPECT_FALSE(again.boolForKey("popupEnabled"));
  EXPECT_EQ(again.stringForKey("deviceId"), "0A1B2C3D-0000-4000-8000-000000000000");
}

TEST(FileDefaults, ValuesOfOtherTypesAreConvertedAsTheDefaultsSystemDoes) {
  TempDir dir;
  const fs::path file = dir.path() / "defaults.json";
  writeText(file, R"({"a":1,"b":0,"c":"yes","d":"no","e":"2x","f":[true],"g":null,"h":0.5,"deviceId":7})");
  FileDefaults defaults(file);
  EXPECT_TRUE(defaults.boolForKey("a"));
  EXPECT_FALSE(defaults.boolForKey("b"));
  EXPECT_TRUE(defaults.boolForKey("c"));
  EXPECT_FALSE(defaults.boolForKey("d"));
  EXPECT_TRUE(defaults.boolForKey("e"));
  EXPECT_FALSE(defaults.boolForKey("f"));
  EXPECT_TRUE(defaults.hasObject("f"));
  EXPECT_FALSE(defaults.hasObject("g"));
  EXPECT_TRUE(defaults.boolForKey("h"));
  EXPECT_EQ(defaults.stringForKey("deviceId"), std::nullopt);
  EXPECT_FALSE(defaults.setAside());
}

TEST(FileDefaults, ACorruptFileReadsAsDefaultsAndIsKeptAside) {
  for (const std::string& corrupt : std::vector<std::string>{"{\"onboarded\": tru", "[1,2,3]", "\"text\"", std::string("\xff\xfe", 2)}) {
    TempDir dir;
    const fs::path file = dir.path() / "defaults.json";
    writeText(file, corrupt);
    FileDefaults defaults(file);
    EXPECT_FALSE(defaults.hasObject("onboarded"));
    auto aside = defaults.setAside();
    ASSERT_TRUE(aside) << corrupt;
    EXPECT_EQ(aside->parent_path(), file.parent_path());
    std::ifstream in(*aside, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), corrupt) << "the old contents survive";
    defaults.setBool("onboarded", true);
    EXPECT_TRUE(FileDefaults(file).boolForKey("onboarded"));
    EXPECT_EQ(filesIn(dir.path()).size(), 2u);
  }
}

TEST(FileSecretStore, KeepsOneOwnerOnlyItemPerServiceAcrossLaunches) {
  TempDir dir;
  const fs::path file = dir.path() / "share" / "mirlo" / "secrets.json";
  {
    FileSecretStore store(file);
    Keychain keychain(store);
    EXPECT_EQ(keychain.load("io.mirlo.app.session"), "");
    keychain.save("io.mirlo.app.session", R"({"access":"a","refresh":"r"})");
    keychain.save("io.mirlo.app.session", R"({"access":"a2","refresh":"r2"})");
    keychain.save("other", "x");
  }
  EXPECT_EQ(modeOf(file), 0600u);
  FileSecretStore again(file);
  Keychain keychain(again);
  EXPECT_EQ(keychain.load("io.mirlo.app.session"), R"({"access":"a2","refresh":"r2"})");
  keychain.save("io.mirlo.app.session", "");
  EXPECT_EQ(keychain.load("io.mirlo.app.session"), "");
  EXPECT_EQ(keychain.load("other"), "x");
  std::string raw;
  EXPECT_EQ(again.copyItem("io.mirlo.app.session", raw), SecretStore::kItemNotFound);
}

TEST(FileSecretStore, ACorruptFileIsKeptAsideAndReadsAsEmpty) {
  TempDir dir;
  const fs::path file = dir.path() / "secrets.json";
  writeText(file, R"({"io.mirlo.app.session": {"nested": true}})");
  FileSecretStore store(file);
  std::string out;
  EXPECT_EQ(store.copyItem("io.mirlo.app.session", out), SecretStore::kItemNotFound);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(filesIn(dir.path()).size(), 1u);
  // An entry that is not base64 is unreadable, not a crash.
  writeText(file, R"({"svc":"not base64!"})");
  EXPECT_NE(store.copyItem("svc", out), 0);
  EXPECT_EQ(Keychain(store).load("svc"), "");
}

// While one program replaces the session again and again (a refresh, a sign-in), another one
// started meanwhile must always find a session: never "signed out" between two steps.
void replacingNeverLeavesTheServiceEmpty(SecretStore& writer, SecretStore& reader, const std::string& service,
                                         int replacements) {
  Keychain writing(writer), reading(reader);
  ASSERT_TRUE(writing.save(service, "session-0"));
  std::atomic<bool> done{false};
  std::atomic<int> reads{0}, empty{0};
  std::thread other([&] {
    while (!done) {
      if (reading.load(service).empty()) ++empty;
      ++reads;
    }
  });
  bool allSaved = true;
  for (int i = 1; i <= replacements; ++i) allSaved = writing.save(service, "session-" + std::to_string(i)) && allSaved;
  done = true;
  other.join();
  EXPECT_TRUE(allSaved);
  EXPECT_GT(reads.load(), 0);
  EXPECT_EQ(empty.load(), 0) << "another program found no session " << empty << " times in " << reads;
  EXPECT_EQ(reading.load(service), "session-" + std::to_string(replacements));
}

TEST(FileSecretStore, AnotherProgramReadingMeanwhileAlwaysFindsTheSession) {
  TempDir dir;
  const fs::path file = dir.path() / "secrets.json";
  FileSecretStore writer(file), reader(file);  // two programs: nothing shared but the file
  replacingNeverLeavesTheServiceEmpty(writer, reader, "io.mirlo.app.session", 60);
}

// Runs against a real Secret Service: under tests/host/with-keyring.sh in CI, skipped elsewhere.
TEST(SecretServiceStore, StoresReplacesAndDeletesForReal) {
  if (!SecretServiceStore::available())
    GTEST_SKIP() << "no Secret Service answers on the session bus (run under tests/host/with-keyring.sh)";
  SecretServiceStore store;
  Keychain keychain(store);
  const std::string service = "io.mirlo.app.test." + std::to_string(::getpid());
  EXPECT_TRUE(keychain.save(service, "first"));
  EXPECT_TRUE(keychain.save(service, "second é ✓"));
  EXPECT_EQ(keychain.load(service), "second é ✓");
  EXPECT_TRUE(keychain.save(service, ""));
  EXPECT_TRUE(keychain.save(service, "")) << "deleting what is not there is no failure";
  std::string out;
  EXPECT_NE(store.copyItem(service, out), 0);
  EXPECT_EQ(keychain.load(service), "");
  EXPECT_EQ(keychain.load(service + ".other"), "");
}

TEST(SecretServiceStore, AnotherProgramReadingMeanwhileAlwaysFindsTheSession) {
  if (!SecretServiceStore::available())
    GTEST_SKIP() << "no Secret Service answers on the session bus (run under tests/host/with-keyring.sh)";
  SecretServiceStore writer, reader;
  const std::string service = "io.mirlo.app.test.concurrent." + std::to_string(::getpid());
  replacingNeverLeavesTheServiceEmpty(writer, reader, service, 40);
  Keychain(writer).save(service, "");
}

}  // namespace
}  // namespace mirlo::host

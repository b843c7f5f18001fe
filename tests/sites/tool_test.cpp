// ftpzn-sites run as a process: its output, its exit codes, and the files it
// leaves behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "site_bytes.h"
#include "sites/archive.h"
#include "sites/sitefile.h"

#ifdef FTPZN_SITES_TOOL

namespace ftpzn::test {
namespace {

namespace fs = std::filesystem;

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

class SitesTool : public testing::Test {
 protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() / ("ftpzn-tool-" + std::to_string(::getpid()) + "-" +
                                         testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(m_dir);
    m_file = (m_dir / "sites.dat").string();
  }
  void TearDown() override { fs::remove_all(m_dir); }

  ToolRun Tool(const std::vector<std::string>& args, const std::string& tool = FTPZN_SITES_TOOL) {
    std::string command = Quote(tool);
    for (const std::string& arg : args) command += " " + Quote(arg);
    command += " >" + Quote((m_dir / "out").string()) + " 2>" + Quote((m_dir / "err").string());
    ToolRun run;
    const int raw = std::system(command.c_str());
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = Slurp(m_dir / "out");
    run.err = Slurp(m_dir / "err");
    return run;
  }
  ToolRun OnFile(std::vector<std::string> args) {
    args.insert(args.begin(), {"--file", m_file});
    return Tool(args);
  }
  void WriteFile(const Bytes& bytes) {
    std::ofstream out(m_file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  fs::path m_dir;
  std::string m_file;
};

TEST_F(SitesTool, AddDumpRemove) {
  ToolRun run = OnFile({"dump"});
  EXPECT_EQ(run.status, 0) << "a missing file is an empty list";
  EXPECT_EQ(run.out, "[]\n");

  run = OnFile({"add",           "--name",    "Work",     "--host",    "ftp.work.example",
                "--port",        "2121",      "--login",  "me",        "--password",
                "s\"ecret\\",    "--path",    "/srv",     "--retries", "-1",
                "--delay",       "7",         "--active", "--account", "acc",
                "--description", "two\nlines"});
  EXPECT_EQ(run.status, 0) << run.err;
  struct stat info {};
  ASSERT_EQ(::stat(m_file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  run = OnFile({"add", "--name", "home", "--host", "10.0.0.1"});
  EXPECT_EQ(run.status, 0) << run.err;
  run = OnFile({"add", "--name", "WORK", "--host", "other"});
  EXPECT_EQ(run.status, 1) << "names compare without case";
  EXPECT_NE(run.err.find("WORK"), std::string::npos) << run.err;

  run = OnFile({"dump"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(
      run.out,
      "[\n"
      "  {\"host\": \"ftp.work.example\", \"retries\": -1, \"description\": \"two\\nlines\", \"account\": "
      "\"acc\", \"initialPath\": \"/srv\", \"login\": \"me\", \"password\": \"s\\\"ecret\\\\\", "
      "\"profileName\": \"Work\", \"port\": 2121, \"retryDelay\": 7, \"reserved\": 0, \"passive\": 0},\n"
      // Only what was given: the rest is a new record's, not an example's.
      "  {\"host\": \"10.0.0.1\", \"retries\": 1, \"description\": \"\", \"account\": \"\", "
      "\"initialPath\": \"\", \"login\": \"\", \"password\": \"\", \"profileName\": \"home\", "
      "\"port\": 21, \"retryDelay\": 15, \"reserved\": 0, \"passive\": 0}\n"
      "]\n");

  EXPECT_EQ(OnFile({"remove", "nothing"}).status, 1);
  run = OnFile({"remove", "work"});
  EXPECT_EQ(run.status, 0) << run.err;
  std::vector<CFtpSite> sites;
  EXPECT_TRUE(SerializeSites(wxString(m_file), sites, false));
  ASSERT_EQ(sites.size(), 1u);
  EXPECT_EQ(sites[0].m_strProfileName, "home");
}

TEST_F(SitesTool, DamagedAndForeignFiles) {
  const Bytes first = WideAscii("h1") + Int32(1) + WideAscii("") + WideAscii("") + WideAscii("u") +
                      WideAscii("one") + WideAscii("") + Int32(21) + WideAscii("/") + Int32(5) + Int32(77) +
                      Int32(1);
  const Bytes second = WideAscii("h2") + Int32(1) + WideAscii("");
  WriteFile(Magic() + first + second);
  ToolRun run = OnFile({"dump"});
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.out.find("\"profileName\": \"one\""), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"reserved\": 77"), std::string::npos) << run.out;
  EXPECT_NE(run.err.find("record 2"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(std::to_string(Magic().size() + first.size())), std::string::npos) << run.err;

  WriteFile(WideAscii("TOLMAVERN_DATa") + first);
  run = OnFile({"dump"});
  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.out, "[]\n");
}

TEST_F(SitesTool, StringsBecomeUtf8WithLoneSurrogatesEscaped) {
  // Host: U+00E9, a surrogate pair for U+1F600, a lone high surrogate and a
  // control character.
  const Bytes host =
      Raw({0xFF, 0xFE, 0xFF, 0x05, 0xE9, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x00, 0xD8, 0x01, 0x00});
  // Login as a narrow Windows-1252 string from another producer.
  const Bytes login = Raw({3, 0x80, 'a', 0xFC});
  WriteFile(Magic() + host + Int32(1) + WideAscii("") + WideAscii("") + login + WideAscii("x") +
            WideAscii("") + Int32(21) + WideAscii("") + Int32(5) + Int32(0) + Int32(0));
  const ToolRun run = OnFile({"dump"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\"host\": \"\xC3\xA9\xF0\x9F\x98\x80\\ud800\\u0001\""), std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\"login\": \"\xE2\x82\xAC"
                         "a\xC3\xBC\""),
            std::string::npos)
      << run.out;
}

TEST_F(SitesTool, DefaultFileIsBesideItsOwnExecutable) {
  // A copy of the tool in a folder of its own, so the default file lands
  // there and not beside the build's binary.
  const fs::path copy = m_dir / "ftpzn-sites";
  fs::copy_file(FTPZN_SITES_TOOL, copy);
  fs::permissions(copy, fs::perms::owner_all);
  ToolRun run = Tool({"add", "--name", "x", "--host", "y"}, copy.string());
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(fs::exists(m_dir / "sites.dat"));
  run = Tool({"dump"}, copy.string());
  EXPECT_NE(run.out.find("\"profileName\": \"x\""), std::string::npos) << run.out;
}

TEST_F(SitesTool, UsageErrorsAreOneLineAndExitTwo) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"frobnicate"},
      {"--bogus", "dump"},
      {"add", "--host", "h"},  // a name is required
      {"add", "--name", "n", "--host", "h", "--port", "12x"},
      {"add", "--name", "n", "--host", "h", "--port", "4294967296"},
      {"add", "--name", "n", "--host", "h", "--port", "0"},
      {"add", "--name", "n", "--host", "h", "--port", "65536"},
      {"add", "--name", "n", "--host", "h", "--port", "-21"},
  };
  for (const auto& args : cases) {
    const ToolRun run = OnFile(args);
    std::string shown;
    for (const std::string& arg : args) shown += " " + arg;
    EXPECT_EQ(run.status, 2) << shown;
    EXPECT_EQ(run.out, "") << shown;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << shown << ": " << run.err;
  }
  EXPECT_FALSE(fs::exists(m_file)) << "a refused command writes nothing";
  EXPECT_EQ(OnFile({"add", "--name", "n", "--host", "h", "--port", "65535"}).status, 0);
}

TEST_F(SitesTool, HelpAndVersionOnStandardOutput) {
  // The help names the file the tool works on without --file: the copy's.
  const fs::path copy = m_dir / "ftpzn-sites";
  fs::copy_file(FTPZN_SITES_TOOL, copy);
  fs::permissions(copy, fs::perms::owner_all);
  ToolRun run = Tool({"--help"}, copy.string());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_NE(run.out.find("usage: ftpzn-sites"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find((m_dir / "sites.dat").string()), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("Exit status"), std::string::npos) << run.out;
  run = Tool({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("ftpzn-sites ", 0), 0u) << run.out;
}

}  // namespace
}  // namespace ftpzn::test

#endif

// Loading and saving whole site files: the magic, the end of the record list
// at the read buffer's edge, damaged and truncated files, and real files.
#include "sites/sitefile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>

#include "site_bytes.h"
#include "sites/archive.h"

namespace ftpzn::test {
namespace {

// A record with every string empty except the description, which holds
// `descriptionChars` characters; `port` tells records apart.
Bytes RecordWithDescription(size_t descriptionChars, int32_t port) {
  Bytes description;
  if (descriptionChars < 0xFF) {
    description = Raw({0xFF, 0xFE, 0xFF, static_cast<int>(descriptionChars)});
  } else {
    description = Raw({0xFF, 0xFE, 0xFF, 0xFF, static_cast<int>(descriptionChars & 0xFF),
                       static_cast<int>(descriptionChars >> 8)});
  }
  for (size_t i = 0; i < descriptionChars; ++i) description = description + Raw({'d', 0});
  return WideAscii("") + Int32(1) + description + WideAscii("") + WideAscii("") + WideAscii("") +
         WideAscii("") + Int32(port) + WideAscii("") + Int32(15) + Int32(0) + Int32(0);
}

Bytes Record(const std::string& name, int32_t port) {
  return WideAscii("host-" + name) + Int32(3) + WideAscii("") + WideAscii("") + WideAscii("user") +
         WideAscii(name) + WideAscii("pw") + Int32(port) + WideAscii("/") + Int32(10) + Int32(0) + Int32(1);
}

struct Loaded {
  bool result;
  SiteFileReport report;
  std::vector<CFtpSite> sites;
};

Loaded Load(const Bytes& bytes, std::vector<CFtpSite> initial = {}) {
  Loaded loaded{false, {}, std::move(initial)};
  MemorySource source(bytes);
  loaded.result = LoadSites(source, loaded.sites, &loaded.report);
  return loaded;
}

TEST(SiteFile, MagicDecidesWhetherTheFileCounts) {
  const CFtpSite kept = BuiltInSite();

  const Loaded onlyMagic = Load(Magic(), {kept});
  EXPECT_TRUE(onlyMagic.result);
  EXPECT_EQ(onlyMagic.report.outcome, SiteFileReport::complete);
  EXPECT_EQ(onlyMagic.sites.size(), 1u) << "loading appends; it does not clear";

  const Loaded wrongCase = Load(WideAscii("TOLMAVERN_Data") + Record("a", 21), {kept});
  EXPECT_TRUE(wrongCase.result) << "a different magic is not an error";
  EXPECT_EQ(wrongCase.report.outcome, SiteFileReport::wrongMagic);
  ASSERT_EQ(wrongCase.sites.size(), 1u);
  EXPECT_EQ(wrongCase.sites[0], kept);

  const Loaded narrowMagic =
      Load(Raw({14, 'T', 'O', 'L', 'M', 'A', 'V', 'E', 'R', 'N', '_', 'D', 'A', 'T', 'A'}) + Record("n", 21));
  EXPECT_TRUE(narrowMagic.result);
  EXPECT_EQ(narrowMagic.sites.size(), 1u) << "a narrow magic compares equal";

  const Loaded empty = Load({});
  EXPECT_FALSE(empty.result);
  EXPECT_EQ(empty.report.outcome, SiteFileReport::wrongMagic);
  EXPECT_TRUE(empty.sites.empty());
}

TEST(SiteFile, RecordsInFileOrderAndSaveWritesThemBack) {
  const Bytes file = Magic() + Record("zeta", 1) + Record("alpha", 2) + Record("mid", 3);
  Loaded loaded = Load(file);
  EXPECT_TRUE(loaded.result);
  ASSERT_EQ(loaded.sites.size(), 3u);
  EXPECT_EQ(loaded.sites[0].m_strProfileName, "zeta");
  EXPECT_EQ(loaded.sites[1].m_strProfileName, "alpha");
  EXPECT_EQ(loaded.sites[2].m_nPort, 3);
  EXPECT_EQ(loaded.sites[1].m_strHost, "host-alpha");

  MemorySink sink;
  EXPECT_TRUE(SaveSites(sink, loaded.sites));
  EXPECT_EQ(sink.Bytes(), file);
}

TEST(SiteFile, TruncatedRecordKeepsTheRecordsBefore) {
  const Bytes whole = Magic() + Record("one", 1) + Record("two", 2);
  const Bytes cut(whole.begin(), whole.end() - 7);
  const Loaded loaded = Load(cut);
  EXPECT_FALSE(loaded.result);
  EXPECT_EQ(loaded.report.outcome, SiteFileReport::damaged);
  EXPECT_TRUE(loaded.report.endOfFile);
  EXPECT_EQ(loaded.report.stopOffset, Magic().size() + Record("one", 1).size());
  ASSERT_EQ(loaded.sites.size(), 1u);
  EXPECT_EQ(loaded.sites[0].m_strProfileName, "one");
}

TEST(SiteFile, RecordEndingOnTheBufferEdgeEndsTheList) {
  // 32 bytes of magic, then a record of 4064 bytes: 24 bytes of short string
  // heads, a 6-byte head for a 2007-character description (4014 bytes) and
  // 20 bytes of integers. It ends at byte 4096, where the first buffer ends.
  const Bytes first = RecordWithDescription(2007, 1);
  ASSERT_EQ(Magic().size() + first.size(), Archive::kBufferSize);
  const Loaded atEdge = Load(Magic() + first + RecordWithDescription(3, 2));
  EXPECT_TRUE(atEdge.result) << "the early end is not a failure";
  ASSERT_EQ(atEdge.sites.size(), 1u);
  EXPECT_EQ(atEdge.sites[0].m_nPort, 1);
  EXPECT_EQ(atEdge.report.unreadBytes, RecordWithDescription(3, 2).size());

  // One character less and the second record is read.
  const Loaded beforeEdge = Load(Magic() + RecordWithDescription(2006, 1) + RecordWithDescription(3, 2));
  ASSERT_EQ(beforeEdge.sites.size(), 2u);
  EXPECT_EQ(beforeEdge.sites[1].m_nPort, 2);
  EXPECT_EQ(beforeEdge.report.unreadBytes, 0u);
}

TEST(SiteFile, SavedFilesReloadWhole) {
  // Descriptions around 2007 characters put the first record's end on the
  // buffer's edge in the shortest encoding (see the test above).
  for (size_t chars = 1995; chars <= 2020; ++chars) {
    std::vector<CFtpSite> sites(2);
    sites[0].m_strDescription = wxString(std::wstring(chars, L'd'));
    sites[1].m_strProfileName = "second";
    MemorySink sink;
    ASSERT_TRUE(SaveSites(sink, sites));
    const Loaded loaded = Load(sink.Bytes());
    ASSERT_EQ(loaded.sites, sites) << chars << " characters";
  }
  // Many profiles of random lengths, as users collect them.
  std::mt19937 random(20261123);
  for (int round = 0; round < 200; ++round) {
    std::vector<CFtpSite> sites(20);
    for (CFtpSite& site : sites) {
      for (wxString* text :
           {&site.m_strHost, &site.m_strDescription, &site.m_strProfileName, &site.m_strLogin})
        *text = wxString(std::wstring(random() % 400, static_cast<wchar_t>(L'a' + random() % 26)));
      site.m_nPort = static_cast<int32_t>(random() % 65535 + 1);
    }
    MemorySink sink;
    ASSERT_TRUE(SaveSites(sink, sites));
    ASSERT_EQ(Load(sink.Bytes()).sites, sites) << "round " << round;
  }
}

TEST(SiteFile, LongStringsAcrossBuffersReadWhole) {
  // A description of 10,000 bytes: part from the buffer, one whole block
  // straight from the file, the rest from a refilled buffer.
  const Bytes file = Magic() + RecordWithDescription(5000, 1) + Record("after", 2) +
                     RecordWithDescription(9000, 3) + Record("last", 4);
  const Loaded loaded = Load(file);
  EXPECT_TRUE(loaded.result);
  ASSERT_EQ(loaded.sites.size(), 4u);
  EXPECT_EQ(loaded.sites[0].m_strDescription, wxString(std::wstring(5000, L'd')));
  EXPECT_EQ(loaded.sites[1].m_strProfileName, "after");
  EXPECT_EQ(loaded.sites[2].m_strDescription.length(), 9000u);
  EXPECT_EQ(loaded.sites[3].m_strProfileName, "last");
}

TEST(SiteFile, DamageNeverCrashesAndTruncationStopsAtRecordEnds) {
  const Bytes sample = Magic() + Record("one", 1) + RecordWithDescription(300, 2) + Record("three", 3);
  std::vector<size_t> recordEnds = {Magic().size()};
  recordEnds.push_back(recordEnds.back() + Record("one", 1).size());
  recordEnds.push_back(recordEnds.back() + RecordWithDescription(300, 2).size());
  recordEnds.push_back(recordEnds.back() + Record("three", 3).size());
  ASSERT_EQ(recordEnds.back(), sample.size());

  for (size_t length = 0; length <= sample.size(); ++length) {
    const Loaded loaded = Load(Bytes(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(length)));
    size_t complete = 0;
    bool onBoundary = false;
    for (size_t i = 0; i < recordEnds.size(); ++i) {
      if (recordEnds[i] <= length && i > 0) ++complete;
      onBoundary |= recordEnds[i] == length;
    }
    EXPECT_EQ(loaded.sites.size(), complete) << "cut at " << length;
    EXPECT_EQ(loaded.result, onBoundary) << "cut at " << length;
  }

  for (size_t at = 0; at < sample.size(); ++at) {
    for (uint8_t mask : {0xFF, 0x01, 0x80}) {
      Bytes flipped = sample;
      flipped[at] ^= mask;
      const Loaded loaded = Load(flipped);
      EXPECT_LE(loaded.sites.size(), sample.size() / 27) << "flip at " << at;
    }
  }

  std::mt19937 random(20261121);
  for (int round = 0; round < 300; ++round) {
    Bytes bytes = round % 2 ? Magic() : Bytes();
    const size_t extra = random() % 700;
    for (size_t i = 0; i < extra; ++i)
      bytes.push_back(static_cast<uint8_t>(random() % 4 == 0 ? 0xFF : random()));
    const Loaded loaded = Load(bytes);
    EXPECT_LE(loaded.sites.size(), bytes.size() / 27 + 1) << "round " << round;
  }
}

class SiteFileOnDisk : public testing::Test {
 protected:
  void SetUp() override {
    m_dir = std::filesystem::temp_directory_path() /
            ("ftpzn-sites-" + std::to_string(::getpid()) + "-" +
             testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(m_dir);
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }
  wxString PathOf(const std::string& name) const { return wxString((m_dir / name).string()); }

  std::filesystem::path m_dir;
};

TEST_F(SiteFileOnDisk, MissingFileSaveAndReload) {
  const wxString path = PathOf("sites.dat");
  std::vector<CFtpSite> sites = {BuiltInSite()};
  SiteFileReport report;
  EXPECT_TRUE(SerializeSites(path, sites, false, &report));
  EXPECT_EQ(report.outcome, SiteFileReport::notOpened);
  EXPECT_EQ(report.error, ENOENT);
  EXPECT_EQ(sites.size(), 1u);

  sites[0].m_nReserved = 0x1234567;
  EXPECT_TRUE(SerializeSites(path, sites, true, &report));
  EXPECT_TRUE(report.flushed);
  struct stat info {};
  ASSERT_EQ(::stat(path.fn_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u) << "the file holds passwords";

  std::vector<CFtpSite> reloaded;
  EXPECT_TRUE(SerializeSites(path, reloaded, false, &report));
  EXPECT_EQ(report.outcome, SiteFileReport::complete);
  ASSERT_EQ(reloaded.size(), 1u);
  EXPECT_EQ(reloaded[0], sites[0]);

  // A save truncates what was there.
  std::vector<CFtpSite> none;
  EXPECT_TRUE(SerializeSites(path, none, true));
  EXPECT_EQ(std::filesystem::file_size(m_dir / "sites.dat"), Magic().size());
}

TEST_F(SiteFileOnDisk, UnwritablePlaceIsSilentAndUnflushed) {
  std::vector<CFtpSite> sites = {BuiltInSite()};
  SiteFileReport report;
  EXPECT_TRUE(SerializeSites(PathOf("no-such-dir/sites.dat"), sites, true, &report));
  EXPECT_EQ(report.outcome, SiteFileReport::notOpened);
  EXPECT_FALSE(report.flushed);
}

TEST_F(SiteFileOnDisk, SaveReplacesTheTargetWholeAndPrivately) {
  // An existing readable file, and a link to another one: both end as the
  // new content with mode 0600, the link still a link, nothing else left.
  std::filesystem::create_directory(m_dir / "real");
  std::ofstream(m_dir / "sites.dat") << "old";
  std::ofstream(m_dir / "real" / "linked.dat") << "old";
  std::filesystem::permissions(m_dir / "sites.dat", std::filesystem::perms(0644));
  std::filesystem::permissions(m_dir / "real" / "linked.dat", std::filesystem::perms(0644));
  std::filesystem::create_symlink("real/linked.dat", m_dir / "link.dat");

  std::vector<CFtpSite> sites = {BuiltInSite()};
  for (const char* name : {"sites.dat", "link.dat"}) {
    SiteFileReport report;
    EXPECT_TRUE(SerializeSites(PathOf(name), sites, true, &report)) << name;
    EXPECT_TRUE(report.flushed);
    std::vector<CFtpSite> reloaded;
    SerializeSites(PathOf(name), reloaded, false);
    EXPECT_EQ(reloaded, sites) << name;
  }
  EXPECT_TRUE(std::filesystem::is_symlink(m_dir / "link.dat"));
  for (const auto& written : {m_dir / "sites.dat", m_dir / "real" / "linked.dat"}) {
    struct stat info {};
    ASSERT_EQ(::stat(written.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << written;
  }
  size_t entries = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(m_dir))
    entries += !entry.is_directory();
  EXPECT_EQ(entries, 3u) << "no temporary file is left behind";
}

TEST_F(SiteFileOnDisk, FifoOrDirectoryInItsPlaceCannotBeOpenedAndNeverBlocks) {
  const wxString fifo = PathOf("fifo.dat");
  ASSERT_EQ(::mkfifo(fifo.fn_str(), 0600), 0);
  for (const bool save : {false, true}) {
    SCOPED_TRACE(save ? "save" : "load");
    std::vector<CFtpSite> sites = {BuiltInSite()};
    SiteFileReport report;
    auto done = std::async(std::launch::async, [&] { return SerializeSites(fifo, sites, save, &report); });
    if (done.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
      ADD_FAILURE() << "the open blocked on the FIFO";
      // Release the blocked open so the test can end.
      const int other = ::open(fifo.fn_str(), O_RDWR);
      ::close(other);
    }
    EXPECT_TRUE(done.get());
    EXPECT_EQ(report.outcome, SiteFileReport::notOpened);
    EXPECT_EQ(sites.size(), 1u);
  }
  std::filesystem::create_directory(m_dir / "dir.dat");
  std::vector<CFtpSite> sites;
  SiteFileReport report;
  EXPECT_TRUE(SerializeSites(PathOf("dir.dat"), sites, false, &report));
  EXPECT_EQ(report.outcome, SiteFileReport::notOpened);
  EXPECT_EQ(report.error, EISDIR);
}

TEST(ModuleDirectory, BesideTheExecutableUnlessOverridden) {
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(GetModuleDirectory(), wxString(executable.parent_path().string() + "/"));
  EXPECT_EQ(DefaultSitesPath(), wxString(executable.parent_path().string() + "/sites.dat"));
  SetModuleDirectoryForTesting("/tmp/elsewhere");
  EXPECT_EQ(DefaultSitesPath(), "/tmp/elsewhere/sites.dat");
  SetModuleDirectoryForTesting(wxString());
  EXPECT_EQ(GetModuleDirectory(), wxString(executable.parent_path().string() + "/"));
}

TEST(SiteRules, FindAssignRemove) {
  std::vector<CFtpSite> sites(3);
  sites[0].m_strProfileName = "Work";
  sites[1].m_strProfileName = "home";
  sites[2].m_strProfileName = "HOME";
  EXPECT_EQ(FindSiteNoCase(sites, "HoMe"), 1);
  EXPECT_EQ(FindSiteNoCase(sites, "none"), -1);

  CFtpSite target = sites[0];
  target.m_nReserved = 9;
  CFtpSite source = BuiltInSite();
  source.m_nReserved = 4;
  AssignSiteFields(target, source);
  EXPECT_EQ(target.m_nReserved, 9);
  target.m_nReserved = source.m_nReserved;
  EXPECT_EQ(target, source);

  RemoveSiteAt(sites, 0);
  ASSERT_EQ(sites.size(), 2u);
  EXPECT_EQ(sites[0].m_strProfileName, "home");
  EXPECT_THROW(RemoveSiteAt(sites, 2), std::out_of_range);
}

}  // namespace
}  // namespace ftpzn::test

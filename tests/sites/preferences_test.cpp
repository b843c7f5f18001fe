// Preference keys against a real file-backed store.
#include "sites/preferences.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <wx/fileconf.h>

#include <filesystem>

namespace ftpzn::test {
namespace {

class Preferences : public testing::Test {
 protected:
  void SetUp() override {
    m_file = std::filesystem::temp_directory_path() / ("ftpzn-prefs-" + std::to_string(::getpid()) + ".ini");
    std::filesystem::remove(m_file);
    m_config = new wxFileConfig("ftpzn-tests", wxString(), wxString(m_file.string()), wxString(),
                                wxCONFIG_USE_LOCAL_FILE);
    delete wxConfigBase::Set(m_config);
  }
  void TearDown() override {
    delete wxConfigBase::Set(nullptr);
    std::filesystem::remove(m_file);
  }

  std::filesystem::path m_file;
  wxConfigBase* m_config = nullptr;
};

TEST_F(Preferences, EmptyStoreGivesTheDefaults) {
  EXPECT_EQ(ReadTransferMax(), 10);
  EXPECT_EQ(ReadConnectionTimeout(), 30);
  EXPECT_EQ(ReadRemoveFailed(), 0);
  EXPECT_EQ(ReadSavePosition(), 1);
  EXPECT_EQ(ReadLastSelectedSite(), 0);
  EXPECT_EQ(ReadEmailAddress(), wxString());
  TransferManagerPlacement placement;
  EXPECT_FALSE(LoadTransferManagerPlacement(placement));
}

TEST_F(Preferences, KeysAreReadFromTheirSections) {
  m_config->Write("/Settings/TransferMax", 3L);
  m_config->Write("/Settings/ConnectionTimeout", 5L);
  m_config->Write("/Settings/RemoveFailed", 1L);
  m_config->Write("/Settings/EmailAddress", "me@example.org");
  m_config->Write("/Settings/LastSelectedSite", 4L);
  // The same name in another section is another key.
  m_config->Write("/TransferManager/TransferMax", 99L);
  EXPECT_EQ(ReadTransferMax(), 3);
  EXPECT_EQ(ReadConnectionTimeout(), 5);
  EXPECT_EQ(ReadRemoveFailed(), 1);
  EXPECT_EQ(ReadEmailAddress(), "me@example.org");
  EXPECT_EQ(ReadLastSelectedSite(), 4);

  WriteLastSelectedSite(2);
  WriteShowTransferManager(0);
  long value = -1;
  EXPECT_TRUE(m_config->Read("/Settings/LastSelectedSite", &value));
  EXPECT_EQ(value, 2);
  EXPECT_TRUE(m_config->Read("/Settings/ShowTransferManager", &value));
  EXPECT_EQ(value, 0);
}

TEST_F(Preferences, PlacementNeedsAllFourAndSavePosition) {
  TransferManagerPlacement stored{3, 10, 20, 300, 400};
  StoreTransferManagerPlacement(stored);
  long value = 0;
  EXPECT_TRUE(m_config->Read("/TransferManager/WndStatus", &value));
  EXPECT_EQ(value, 3);
  TransferManagerPlacement read;
  ASSERT_TRUE(LoadTransferManagerPlacement(read));
  EXPECT_EQ(read.top, 10);
  EXPECT_EQ(read.left, 20);
  EXPECT_EQ(read.bottom, 300);
  EXPECT_EQ(read.right, 400);

  // 0xFFFFFFFF in WndRight means absent: the other three are ignored too.
  m_config->Write("/TransferManager/WndRight", wxString("4294967295"));
  EXPECT_FALSE(LoadTransferManagerPlacement(read));
  m_config->Write("/TransferManager/WndRight", 400L);

  // SavePosition 0 stops both directions; stored values stay untouched.
  m_config->Write("/Settings/SavePosition", 0L);
  EXPECT_FALSE(LoadTransferManagerPlacement(read));
  StoreTransferManagerPlacement(TransferManagerPlacement{1, 1, 1, 1, 1});
  EXPECT_TRUE(m_config->Read("/TransferManager/WndTop", &value));
  EXPECT_EQ(value, 10);
}

TEST(Bookmarks, PathKeepsTheDoubledSeparator) {
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(BookmarkFilePath(), wxString(executable.parent_path().string() + "//ftpznbm.ini"));
}

}  // namespace
}  // namespace ftpzn::test

// wx base initialised once for the window-free tests (standard paths and
// the config classes want an application object).
#include <gtest/gtest.h>
#include <wx/init.h>

#include <memory>

namespace {

class WxEnvironment : public testing::Environment {
 public:
  void SetUp() override { m_initializer = std::make_unique<wxInitializer>(); }
  void TearDown() override { m_initializer.reset(); }

 private:
  std::unique_ptr<wxInitializer> m_initializer;
};

const testing::Environment* const registered = testing::AddGlobalTestEnvironment(new WxEnvironment);

}  // namespace

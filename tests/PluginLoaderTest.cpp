// The operating system's library calls and the loader template through the acquisition factory,
// without OpenCV, so that they also run in the Windows build: a library loaded by absolute wide
// path (LoadLibraryW there, dlopen here), its "GetInstance" resolved by narrow name, the object
// made and released before the library is freed, and narrow paths whose high bytes are widened
// by sign extension. The test plug-in is taken from the working directory (see CMakeLists.txt).
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "DynamicLibrary.h"
#include "FactoryAcquisition.h"
#include "FactoryBase.h"
#include "PluginEvents.h"
#include "PluginTestFolder.h"

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

namespace {

// Each test works in a fresh folder of its own holding copies of the test plug-in under names of
// its choosing.
class PluginLoader : public PluginTestFolder {
 protected:
  PluginLoader() : PluginTestFolder("ombrix_loader_") {}

  void SetUp() override {
    PluginTestFolder::SetUp();
    plugin_ = fs::absolute(OMBRIX_TEST_ACQUISITION_PLUGIN);
    ASSERT_TRUE(fs::exists(plugin_)) << plugin_;
  }

  // Copies the test plug-in into the folder as stem plus the platform's library suffix.
  fs::path Copy(const std::u16string& stem) {
    const fs::path target = folder_ / fs::path(stem + plugin_.extension().u16string());
    fs::copy_file(plugin_, target, fs::copy_options::overwrite_existing);
    return target;
  }

  fs::path plugin_;
};

TEST_F(PluginLoader, AbsolutePathLoadsResolvesAndFrees) {
  const fs::path path = Copy(u"Direct");
  ASSERT_TRUE(path.is_absolute());
  const std::size_t freesBefore = DynamicLibrary::FreeCount();

  DynamicLibrary::Handle library = DynamicLibrary::Load(path);
  ASSERT_NE(library, nullptr);
  EXPECT_TRUE(DynamicLibrary::IsLoaded(path));
  const DynamicLibrary::Symbol entry = DynamicLibrary::Resolve(library, "GetInstance");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(DynamicLibrary::Resolve(library, "getinstance"), nullptr);
  EXPECT_EQ(DynamicLibrary::Resolve(library, "NoSuchEntry"), nullptr);
  // The entry lies in the file that was named, not in some other copy.
  EXPECT_TRUE(
      fs::equivalent(DynamicLibrary::ModuleFileOf(reinterpret_cast<const void*>(entry)), path));

  DynamicLibrary::Free(library);
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore + 1);
  EXPECT_FALSE(DynamicLibrary::IsLoaded(path));
  EXPECT_EQ(plugin_events::Take(), (Events{"Direct load", "Direct unload"}));
}

TEST_F(PluginLoader, MissingLibraryIsRefusedAndNothingIsFreed) {
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  {
    CFactoryAcquisition factory;
    EXPECT_FALSE(factory.Load((folder_ / "Absent.dll").string()));
    EXPECT_EQ(factory.LibraryHandle(), nullptr);
  }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore);
  EXPECT_TRUE(plugin_events::Take().empty());
}

TEST_F(PluginLoader, RelativeNameMakesObjectReleasedBeforeUnload) {
  Copy(u"Acquisition");
  fs::current_path(folder_);
  const std::string name = "Acquisition" + plugin_.extension().string();
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  {
    CFactoryAcquisition factory;
    ASSERT_TRUE(factory.Load(name));
    ASSERT_NE(factory.LibraryHandle(), nullptr);
    std::shared_ptr<IOmbrixAcquisition> object = factory.CreateInstance(nullptr);
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(object.use_count(), 1);
    object.reset();
  }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore + 1);
  EXPECT_FALSE(DynamicLibrary::IsLoaded(folder_ / name));
  EXPECT_EQ(plugin_events::Take(),
            (Events{"Acquisition load", "Acquisition create variant=0 logger=no",
                    "Acquisition destroy", "Acquisition unload"}));
}

TEST_F(PluginLoader, EveryHighByteWidensBySignExtension) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    const std::u16string wide = WidenBySignExtension(std::string(1, static_cast<char>(byte)));
    ASSERT_EQ(wide.size(), 1u);
    EXPECT_EQ(wide[0], static_cast<char16_t>(0xFF00 | byte)) << byte;
  }
}

// The narrow path's bytes 0x80, 0xE9 and 0xFE name the files carrying U+FF80, U+FFE9 and U+FFFE
// plus the ASCII rest; the files named by the code-page reading of the same bytes are not found.
TEST_F(PluginLoader, NarrowHighBytesNameTheSignExtendedFile) {
  const std::u16string widened = u"p\uFF80\uFFE9\uFFFE";
  const fs::path wideFile = Copy(widened);
  const std::string narrow = "p\x80\xE9\xFE" + plugin_.extension().string();
  fs::current_path(folder_);
  {
    CFactoryAcquisition factory;
    ASSERT_TRUE(factory.Load(narrow));
    const auto entry = DynamicLibrary::Resolve(factory.LibraryHandle(), "GetInstance");
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(fs::equivalent(DynamicLibrary::ModuleFileOf(reinterpret_cast<const void*>(entry)),
                               wideFile));
  }
  EXPECT_EQ(plugin_events::Take(), (Events{"p\xEF\xBE\x80\xEF\xBF\xA9\xEF\xBF\xBE load",
                                           "p\xEF\xBE\x80\xEF\xBF\xA9\xEF\xBF\xBE unload"}));
}

TEST_F(PluginLoader, NarrowHighByteDoesNotNameTheCodePageFile) {
  // U+00E9 is what 0xE9 reads as in Latin-1 and in Windows-1252.
  Copy(u"lat\u00E9");
  fs::current_path(folder_);
  CFactoryAcquisition factory;
  EXPECT_FALSE(factory.Load("lat\xE9" + plugin_.extension().string()));
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
  EXPECT_TRUE(plugin_events::Take().empty());
}

}  // namespace

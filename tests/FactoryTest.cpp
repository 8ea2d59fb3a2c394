// The plug-in factories: path resolution, loading and replacing libraries, making
// objects through "GetInstance", and the order in which objects and libraries are released. The
// test plug-ins record their load, unload, object creation and destruction in a shared log.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include "DynamicLibrary.h"
#include "FactoryBase.h"
#include "FactoryCollection.h"
#include "IOmbrixProcessing.h"
#include "Platform.h"
#include "PluginEvents.h"
#include "PluginTestFolder.h"

namespace fs = std::filesystem;
using Events = std::vector<std::string>;

namespace {

class CTestLogger : public ILogger {};

// Each test works in its own folder holding copies of the test plug-ins under names of its
// choosing, so that several libraries from one plug-in can be told apart by name.
class PluginFolder : public PluginTestFolder {
 protected:
  PluginFolder() : PluginTestFolder("ombrix_factory_") {}

  // Copies a test plug-in into the test folder as <name> plus the platform's library suffix.
  fs::path Copy(const char* plugin, const std::string& name) {
    const fs::path source(plugin);
    const fs::path target = folder_ / (name + source.extension().string());
    fs::copy_file(source, target, fs::copy_options::overwrite_existing);
    return target;
  }
};

// IFactoryBase through the processing factory: loading, replacing and making objects.
class FactoryProcessing : public PluginFolder {
 protected:
  // Loads a copy of the plug-in, named name, into the factory; false when the load fails.
  bool LoadCopy(CFactoryProcessing& factory, const char* plugin, const std::string& name) {
    return factory.Load(Copy(plugin, name));
  }
};

// The collection: the processing module by its relative name, and the release order.
class FactoryCollection : public PluginFolder {};

}  // namespace

TEST_F(FactoryProcessing, FactoriesAreNotCopyable) {
  static_assert(!std::is_copy_constructible<CFactoryProcessing>::value, "");
  static_assert(!std::is_copy_assignable<CFactoryProcessing>::value, "");
  static_assert(!std::is_copy_constructible<CFactoryAcquisition>::value, "");
  static_assert(!std::is_copy_constructible<CFactoryCollection>::value, "");
  static_assert(std::has_virtual_destructor<CFactoryCollection>::value, "");
  static_assert(std::has_virtual_destructor<CFactoryProcessing>::value, "");
  static_assert(std::is_same<decltype(std::declval<CFactoryProcessing&>().CreateInstance(nullptr)),
                             std::shared_ptr<IOmbrixProcessing>>::value,
                "");
  static_assert(std::is_same<decltype(std::declval<CFactoryAcquisition&>().CreateInstance(nullptr)),
                             std::shared_ptr<IOmbrixAcquisition>>::value,
                "");
  CFactoryProcessing factory;
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
}

TEST_F(FactoryProcessing, MissingFileGivesFalseAndNullHandle) {
  CFactoryProcessing factory;
  EXPECT_FALSE(factory.Load((folder_ / "Absent.so").string()));
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
  EXPECT_FALSE(factory.Load(folder_ / "Absent.so"));
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
}

TEST_F(FactoryCollection, ProcessingModuleAbsentFromWorkingDirectory) {
  fs::current_path(folder_);
  CFactoryCollection collection;
  EXPECT_FALSE(collection.m_factoryProcessing.Load(OMBRIX_PROCESSING_MODULE));
  EXPECT_EQ(collection.m_factoryProcessing.LibraryHandle(), nullptr);
}

TEST_F(FactoryCollection, ProcessingModuleFoundInWorkingDirectory) {
  const fs::path copy = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "OmbrixProcessing");
  fs::rename(copy, folder_ / fs::path(OMBRIX_PROCESSING_MODULE).filename());
  fs::current_path(folder_);
  {
    CFactoryCollection collection;
    EXPECT_TRUE(collection.m_factoryProcessing.Load(OMBRIX_PROCESSING_MODULE));
    EXPECT_NE(collection.m_factoryProcessing.LibraryHandle(), nullptr);
  }
  EXPECT_EQ(plugin_events::Take(), (Events{"OmbrixProcessing load", "OmbrixProcessing unload"}));
}

TEST_F(FactoryProcessing, RelativePathResolvedAtTimeOfCall) {
  const fs::path inside = folder_ / "inside";
  const fs::path outside = folder_ / "outside";
  fs::create_directories(inside);
  fs::create_directories(outside);
  fs::rename(Copy(OMBRIX_TEST_RECORDING_PLUGIN, "Relative"),
             inside / ("Relative" + fs::path(OMBRIX_TEST_RECORDING_PLUGIN).extension().string()));
  const std::string relative = std::string(".") + OMBRIX_SEP + "Relative" +
                               fs::path(OMBRIX_TEST_RECORDING_PLUGIN).extension().string();

  CFactoryProcessing early;
  CFactoryProcessing late;
  fs::current_path(outside);
  EXPECT_FALSE(early.Load(relative));
  fs::current_path(inside);
  EXPECT_TRUE(early.Load(relative));
  fs::current_path(outside);
  EXPECT_FALSE(late.Load(relative));
  EXPECT_EQ(late.LibraryHandle(), nullptr);
  // The library loaded earlier keeps working after the directory changes.
  EXPECT_TRUE(early.CreateInstance(nullptr) != nullptr);
  EXPECT_EQ(plugin_events::Take(),
            (Events{"Relative load", "Relative create variant=0 logger=no", "Relative destroy"}));
}

TEST_F(FactoryProcessing, NarrowPathHighByteNamesSignExtendedFile) {
  const std::string extension = fs::path(OMBRIX_TEST_RECORDING_PLUGIN).extension().string();
  // The byte 0xE9 becomes U+FFE9, so the file that is found is the one carrying that character.
  const fs::path widened =
      folder_ / fs::path(std::u16string(u"\uFFE9") + fs::path(extension).u16string());
  fs::copy_file(OMBRIX_TEST_RECORDING_PLUGIN, widened);
  const std::string narrow = folder_.string() + OMBRIX_SEP + "\xE9" + extension;

  CFactoryProcessing factory;
  EXPECT_TRUE(factory.Load(narrow));
  EXPECT_NE(factory.LibraryHandle(), nullptr);
  // The same bytes as a path name a different file, which is absent.
  EXPECT_FALSE(fs::exists(fs::path(narrow)));
}

TEST_F(FactoryProcessing, NarrowPathHighByteDoesNotFindCodePageName) {
  const std::string extension = fs::path(OMBRIX_TEST_RECORDING_PLUGIN).extension().string();
  // A file named by the raw byte 0xE9 (Latin-1 'e acute') is not what the widened path names.
  const std::string narrow = folder_.string() + OMBRIX_SEP + "\xE9" + extension;
  fs::copy_file(OMBRIX_TEST_RECORDING_PLUGIN, fs::path(narrow));
  CFactoryProcessing factory;
  EXPECT_FALSE(factory.Load(narrow));
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
}

TEST_F(FactoryProcessing, EmptyPathThrowsFromAbsolute) {
  CFactoryProcessing factory;
  try {
    factory.Load(std::string());
    FAIL() << "no exception";
  } catch (const fs::filesystem_error& error) {
    EXPECT_NE(std::string(error.what()).find("absolute"), std::string::npos) << error.what();
    EXPECT_EQ(error.code(), std::make_error_code(std::errc::invalid_argument));
    EXPECT_TRUE(error.path1().empty());
  }
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
}

TEST_F(FactoryProcessing, StatusFailureOtherThanMissingThrowsFromExists) {
  CFactoryProcessing factory;
  const fs::path tooLong = folder_ / std::string(1000, 'x');
  try {
    factory.Load(tooLong);
    FAIL() << "no exception";
  } catch (const fs::filesystem_error& error) {
    EXPECT_NE(std::string(error.what()).find("exists"), std::string::npos) << error.what();
    EXPECT_EQ(error.code(), std::make_error_code(std::errc::filename_too_long));
    EXPECT_EQ(error.path1(), tooLong);
  }
  EXPECT_EQ(factory.LibraryHandle(), nullptr);
}

TEST_F(FactoryProcessing, MissingFileLeavesEarlierHandle) {
  const fs::path first = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "Kept");
  CFactoryProcessing factory;
  ASSERT_TRUE(factory.Load(first));
  const DynamicLibrary::Handle handle = factory.LibraryHandle();
  EXPECT_FALSE(factory.Load(folder_ / "Absent.so"));
  EXPECT_EQ(factory.LibraryHandle(), handle);
}

TEST_F(FactoryProcessing, SecondLoadReplacesHandleWithoutFreeingFirst) {
  const fs::path first = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "First");
  const fs::path second = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "Second");
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  {
    CFactoryProcessing factory;
    ASSERT_TRUE(factory.Load(first));
    const DynamicLibrary::Handle firstHandle = factory.LibraryHandle();
    ASSERT_TRUE(factory.Load(second));
    EXPECT_NE(factory.LibraryHandle(), firstHandle);
    EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore);
    // Objects now come from the second library.
    EXPECT_TRUE(factory.CreateInstance(nullptr) != nullptr);
  }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore + 1);
  // The first library stays loaded until the process ends: no unload is recorded for it.
  EXPECT_EQ(plugin_events::Take(),
            (Events{"First load", "Second load", "Second create variant=0 logger=no",
                    "Second destroy", "Second unload"}));
}

TEST_F(FactoryProcessing, FailedLoadDropsEarlierHandleWithoutFreeingIt) {
  const fs::path library = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "Dropped");
  const fs::path notALibrary = folder_ / "NotALibrary.so";
  std::ofstream(notALibrary) << "not a library";
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  {
    CFactoryProcessing factory;
    ASSERT_TRUE(factory.Load(library));
    EXPECT_FALSE(factory.Load(notALibrary));
    EXPECT_EQ(factory.LibraryHandle(), nullptr);
  }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore);
  EXPECT_EQ(plugin_events::Take(), (Events{"Dropped load"}));
}

TEST_F(FactoryCollection, CollectionThatLoadedNothingFreesNothing) {
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  { CFactoryCollection collection; }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore);
}

TEST_F(FactoryCollection, ObjectDestroyedBeforeLibraryUnloaded) {
  const fs::path library = Copy(OMBRIX_TEST_RECORDING_PLUGIN, "Owned");
  {
    CFactoryCollection collection;
    ASSERT_TRUE(collection.m_factoryProcessing.Load(library));
    std::shared_ptr<IOmbrixProcessing> processing =
        collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
    ASSERT_TRUE(processing != nullptr);
    EXPECT_EQ(plugin_events::Take(), (Events{"Owned load", "Owned create variant=0 logger=no"}));
  }
  EXPECT_EQ(plugin_events::Take(), (Events{"Owned destroy", "Owned unload"}));
}

TEST_F(FactoryProcessing, EachCreateInstanceMakesNewObjectUnderOwnControlBlock) {
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_RECORDING_PLUGIN, "Many"));
  std::shared_ptr<IOmbrixProcessing> first = factory.CreateInstance(nullptr);
  std::shared_ptr<IOmbrixProcessing> second = factory.CreateInstance(nullptr);
  ASSERT_TRUE(first != nullptr && second != nullptr);
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(first.use_count(), 1);
  first.reset();
  EXPECT_EQ(plugin_events::Take(), (Events{"Many load", "Many create variant=0 logger=no",
                                           "Many create variant=0 logger=no", "Many destroy"}));
}

TEST_F(FactoryProcessing, LoggerCopyHandedToEntryAndReleased) {
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_RECORDING_PLUGIN, "Logged"));
  auto logger = std::make_shared<CTestLogger>();
  std::shared_ptr<IOmbrixProcessing> processing = factory.CreateInstance(logger);
  ASSERT_TRUE(processing != nullptr);
  EXPECT_EQ(logger.use_count(), 1);
  EXPECT_EQ(plugin_events::Take(), (Events{"Logged load", "Logged create variant=0 logger=yes"}));
}

TEST_F(FactoryProcessing, VirtualOperationsReachPluginAcrossBoundary) {
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_RECORDING_PLUGIN, "Calls"));
  std::shared_ptr<IOmbrixProcessing> processing = factory.CreateInstance(nullptr);
  ASSERT_TRUE(processing != nullptr);
  EXPECT_FALSE(processing->LoadDarkFrames("long", "short", ""));
  processing->SetAlgorithmMode(2);
  EXPECT_EQ(processing->ComputeMtf(cv::Mat(3, 7, CV_16UC1)), 7.0f);
  std::vector<DetectedObject> objects;
  cv::Mat first;
  cv::Mat second;
  processing->DetectObjects(objects, first, second, 2, true);
  EXPECT_EQ(objects.size(), 2u);
  EXPECT_EQ(plugin_events::Take(),
            (Events{"Calls load", "Calls create variant=0 logger=no",
                    "Calls LoadDarkFrames long|short|", "Calls SetAlgorithmMode 2"}));
}

// Slots 8 and 14 (the in-memory dark frames and the defect map) sit where the host expects them:
// each call reaches its own operation in the separately built plug-in.
TEST_F(FactoryProcessing, DarkFramesInMemoryAndDefectMapReachTheirSlots) {
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_RECORDING_PLUGIN, "Slots"));
  std::shared_ptr<IOmbrixProcessing> processing = factory.CreateInstance(nullptr);
  ASSERT_TRUE(processing != nullptr);
  EXPECT_FALSE(processing->SetDarkFrames(cv::Mat(3, 4, CV_16U), cv::Mat(3, 4, CV_16U), cv::Mat()));
  EXPECT_TRUE(processing->SetDarkFrames(cv::Mat(6, 7, CV_16U), cv::Mat(6, 7, CV_16U),
                                        cv::Mat(6, 7, CV_8U)));
  const cv::Mat map = processing->GetDefectMap();
  EXPECT_EQ(map.size(), cv::Size(5, 2));
  EXPECT_EQ(map.type(), CV_8UC1);
  EXPECT_EQ(
      plugin_events::Take(),
      (Events{"Slots load", "Slots create variant=0 logger=no", "Slots SetDarkFrames 3x4|3x4|empty",
              "Slots SetDarkFrames 6x7|6x7|6x7", "Slots GetDefectMap"}));
}

TEST_F(FactoryProcessing, NullInstanceGivesEmptyPointer) {
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_NULL_PLUGIN, "Declining"));
  std::shared_ptr<IOmbrixProcessing> processing = factory.CreateInstance(nullptr);
  EXPECT_FALSE(processing);
  EXPECT_EQ(processing.get(), nullptr);
  // Wrapped like any other result: the null pointer has a control block of its own.
  EXPECT_EQ(processing.use_count(), 1);
  EXPECT_EQ(plugin_events::Take(),
            (Events{"Declining load", "Declining null-instance variant=0 logger=no"}));
}

TEST_F(FactoryCollection, CollectionReleasesSpareThenProcessingThenAcquisition) {
  const fs::path acquisition = Copy(OMBRIX_TEST_NO_ENTRY_PLUGIN, "Acquisition");
  const fs::path processing = Copy(OMBRIX_TEST_NO_ENTRY_PLUGIN, "Processing");
  const fs::path spare = Copy(OMBRIX_TEST_NO_ENTRY_PLUGIN, "Spare");
  const std::size_t freesBefore = DynamicLibrary::FreeCount();
  {
    CFactoryCollection collection;
    ASSERT_TRUE(collection.m_factoryAcquisition.Load(acquisition));
    ASSERT_TRUE(collection.m_factoryProcessing.Load(processing));
    collection.m_hModuleSpare = DynamicLibrary::Load(spare);
    ASSERT_NE(collection.m_hModuleSpare, nullptr);
    plugin_events::Take();
  }
  EXPECT_EQ(DynamicLibrary::FreeCount(), freesBefore + 3);
  EXPECT_EQ(plugin_events::Take(),
            (Events{"Spare unload", "Processing unload", "Acquisition unload"}));
}

// The entry is called without a check: with nothing loaded, or with a library lacking the export,
// the process faults. Observed in a child process.
TEST_F(FactoryProcessing, CreateInstanceWithoutLibraryCrashes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CFactoryProcessing factory;
  EXPECT_DEATH(factory.CreateInstance(nullptr), "");
}

TEST_F(FactoryProcessing, CreateInstanceWithoutExportCrashes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CFactoryProcessing factory;
  ASSERT_TRUE(LoadCopy(factory, OMBRIX_TEST_NO_ENTRY_PLUGIN, "NoEntry"));
  EXPECT_DEATH(factory.CreateInstance(nullptr), "");
}

#if !defined(_MSC_VER)
namespace {

// Index of a virtual operation in the Itanium C++ ABI's table, read from its pointer to member
// (an offset in bytes, marked virtual by the low bit of the pointer, or on ARM of the adjustment).
template <class Member>
std::ptrdiff_t TableIndex(Member member) {
  struct Representation {
    std::ptrdiff_t ptr;
    std::ptrdiff_t adj;
  };
  static_assert(sizeof(Member) == sizeof(Representation), "Itanium pointer to member function");
  Representation rep{};
  std::memcpy(&rep, &member, sizeof rep);
  const auto entry = static_cast<std::ptrdiff_t>(sizeof(void*));
#if defined(__arm__) || defined(__aarch64__)
  return (rep.adj & 1) != 0 ? rep.ptr / entry : -1;
#else
  return (rep.ptr & 1) != 0 ? (rep.ptr - 1) / entry : -1;
#endif
}

// The slot as the host numbers it: the destructor is one entry there, two on this ABI.
template <class Member>
std::ptrdiff_t Slot(Member member) {
  return TableIndex(member) - 1;
}

TEST(ProcessingInterface, EveryOperationSitsInItsSlot) {
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved01), 1);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved06), 6);
  EXPECT_EQ(Slot(&IOmbrixProcessing::LoadDarkFrames), 7);
  EXPECT_EQ(Slot(&IOmbrixProcessing::SetDarkFrames), 8);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved09), 9);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved10), 10);
  EXPECT_EQ(Slot(&IOmbrixProcessing::ComputeLightSourceFactor), 11);
  EXPECT_EQ(Slot(&IOmbrixProcessing::CountDarkChamberDefects), 12);
  EXPECT_EQ(Slot(&IOmbrixProcessing::ComputeMtf), 13);
  EXPECT_EQ(Slot(&IOmbrixProcessing::GetDefectMap), 14);
  EXPECT_EQ(Slot(&IOmbrixProcessing::SetAlgorithmMode), 15);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved16), 16);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved17), 17);
  EXPECT_EQ(Slot(&IOmbrixProcessing::BeginImage), 18);
  EXPECT_EQ(Slot(&IOmbrixProcessing::PushImage), 19);
  EXPECT_EQ(Slot(&IOmbrixProcessing::GetProcessedImage), 20);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved21), 21);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved26), 26);
  EXPECT_EQ(Slot(&IOmbrixProcessing::SetAlgoParameters), 27);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved28), 28);
  EXPECT_EQ(Slot(&IOmbrixProcessing::DetectObjects), 29);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved30), 30);
  EXPECT_EQ(Slot(&IOmbrixProcessing::Reserved31), 31);
  EXPECT_EQ(Slot(&IOmbrixProcessing::StackMinimum), 32);
  EXPECT_EQ(Slot(&IOmbrixProcessing::StackAverage), 33);
}

}  // namespace
#endif

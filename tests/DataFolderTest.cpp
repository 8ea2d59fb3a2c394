// The data-folder search: three, four and five levels above the working directory, first
// existing candidate wins (a plain file counts), empty string when none.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DataFolder.h"
#include "Platform.h"

namespace fs = std::filesystem;

namespace {

// Runs each test in a fresh tree a/b/c/d/e below a temporary root and restores the working
// directory afterwards.
class DataFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = fs::current_path();
    root_ =
        fs::temp_directory_path() /
        ("ombrix_datafolder_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
         "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root_);
    work_ = root_ / "a" / "b" / "c" / "d" / "e";
    fs::create_directories(work_);
    fs::current_path(work_);
  }
  void TearDown() override {
    fs::current_path(previous_);
    fs::remove_all(root_);
  }
  // levels = 3 puts UnitTestData beside "c" (work_ is e: e/../../.. = b).
  fs::path Up(int levels) const {
    fs::path p = work_;
    for (int i = 0; i < levels; ++i) p = p.parent_path();
    return p / "UnitTestData";
  }

  fs::path previous_, root_, work_;
};

const std::string kThree =
    ".." OMBRIX_SEP ".." OMBRIX_SEP ".." OMBRIX_SEP "UnitTestData" OMBRIX_SEP;
const std::string kFour = ".." OMBRIX_SEP + kThree;
const std::string kFive = ".." OMBRIX_SEP + kFour;

#if defined(_WIN32)
TEST_F(DataFolder, WindowsCandidatesUseBackslashes) {
  EXPECT_EQ(kThree, "..\\..\\..\\UnitTestData\\");
  fs::create_directory(Up(5));
  EXPECT_EQ(FindDataFolder(), "..\\..\\..\\..\\..\\UnitTestData\\");
}
#else
TEST_F(DataFolder, PosixCandidatesUseSlashes) {
  EXPECT_EQ(kThree, "../../../UnitTestData/");
  fs::create_directory(Up(4));
  EXPECT_EQ(FindDataFolder(), "../../../../UnitTestData/");
}
#endif

TEST_F(DataFolder, CandidatesHaveTheirStoredLengths) {
  EXPECT_EQ(kThree.size(), 22u);
  EXPECT_EQ(kFour.size(), 25u);
  EXPECT_EQ(kFive.size(), 28u);
}

TEST_F(DataFolder, NoneFoundGivesEmptyString) { EXPECT_EQ(FindDataFolder(), ""); }

TEST_F(DataFolder, ThreeLevelsUp) {
  fs::create_directory(Up(3));
  EXPECT_EQ(FindDataFolder(), kThree);
}

TEST_F(DataFolder, FourLevelsUp) {
  fs::create_directory(Up(4));
  EXPECT_EQ(FindDataFolder(), kFour);
}

TEST_F(DataFolder, FiveLevelsUp) {
  fs::create_directory(Up(5));
  EXPECT_EQ(FindDataFolder(), kFive);
}

TEST_F(DataFolder, FirstCandidateWinsWhenAllExist) {
  fs::create_directory(Up(3));
  fs::create_directory(Up(4));
  fs::create_directory(Up(5));
  EXPECT_EQ(FindDataFolder(), kThree);
}

TEST_F(DataFolder, NearerCandidateWinsOverFarther) {
  fs::create_directory(Up(4));
  fs::create_directory(Up(5));
  EXPECT_EQ(FindDataFolder(), kFour);
}

TEST_F(DataFolder, PlainFileCountsAsFound) {
  std::ofstream(Up(4)) << "not a folder";
  fs::create_directory(Up(5));
  EXPECT_EQ(FindDataFolder(), kFour);
}

TEST_F(DataFolder, ResolvedAgainstTheCurrentWorkingDirectory) {
  fs::create_directory(Up(3));
  fs::current_path(root_);  // three levels above root_ there is no UnitTestData
  EXPECT_EQ(FindDataFolder(), "");
  fs::current_path(work_);
  EXPECT_EQ(FindDataFolder(), kThree);
}

}  // namespace

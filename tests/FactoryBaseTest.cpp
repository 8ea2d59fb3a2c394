// The plug-in loader's narrow-path widening: each byte sign-extended to a 16-bit character, no code
// page. Needs neither OpenCV nor a plug-in.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "DynamicLibrary.h"
#include "FactoryBase.h"

namespace {

TEST(FactoryBase, WideningPassesAsciiBytesUnchanged) {
  EXPECT_EQ(WidenBySignExtension("./OmbrixProcessing.so"), u"./OmbrixProcessing.so");
  EXPECT_EQ(WidenBySignExtension(""), u"");
}

TEST(FactoryBase, WideningSignExtendsHighBytesWithoutDecoding) {
  const std::u16string wide = WidenBySignExtension(std::string("a\x80\xE9\xFF", 4));
  ASSERT_EQ(wide.size(), 4u);
  EXPECT_EQ(wide[0], u'a');
  EXPECT_EQ(wide[1], char16_t{0xFF80});
  EXPECT_EQ(wide[2], char16_t{0xFFE9});
  EXPECT_EQ(wide[3], char16_t{0xFFFF});
}

TEST(FactoryBase, WideningKeepsEmbeddedNulAndLength) {
  const std::u16string wide = WidenBySignExtension(std::string("x\0\x7F", 3));
  ASSERT_EQ(wide.size(), 3u);
  EXPECT_EQ(wide[1], u'\0');
  EXPECT_EQ(wide[2], char16_t{0x7F});
}

}  // namespace

namespace {

TEST(DynamicLibrary, FreeOfANullHandleIsANoOp) {
  const std::size_t before = DynamicLibrary::FreeCount();
  DynamicLibrary::Free(nullptr);
  DynamicLibrary::Free(nullptr);
  EXPECT_EQ(DynamicLibrary::FreeCount(), before);
}

}  // namespace

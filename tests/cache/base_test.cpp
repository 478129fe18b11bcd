#include "cache/base.h"

#include <gtest/gtest.h>

#include "fixtures.h"

using namespace KelvaneTools;

namespace {

TEST(CacheBase, MessagesPerCode) {
  const char* expected[] = {"",
                            "File not found.",
                            "Unknown file error.",
                            "Read past EOF.",
                            "Unknown file error.",
                            "Unhandled exception.",
                            "Invalid cache file.",
                            "Operation cancelled."};
  for (uint32_t c = 0; c < 8; ++c) EXPECT_EQ(ErrorMessage(c), expected[c]) << c;
  EXPECT_EQ(ErrorMessage(8), "");

  kvCacheBase b("x", false);
  for (uint32_t c = 0; c < 8; ++c) {
    b.SetError(c);
    EXPECT_EQ(b.InError(), c != 0 && c != 7) << c;
  }
}

TEST(CacheBase, SizeText) {
  EXPECT_EQ(SizeText(0), "0 B");
  EXPECT_EQ(SizeText(1), "1 B");
  EXPECT_EQ(SizeText(1023), "1023 B");
  EXPECT_EQ(SizeText(1024), "1 KB");
  EXPECT_EQ(SizeText(1536), "1.50 KB");
  EXPECT_EQ(SizeText(1048577), "1.00 MB");
  EXPECT_EQ(SizeText(5ull << 20), "5 MB");
  EXPECT_EQ(SizeText((1ull << 30) + (1ull << 29)), "1.50 GB");
  EXPECT_EQ(SizeText(3ull << 40), "3 TB");
  EXPECT_EQ(SizeText(5000ull << 40), "5000 TB");
}

TEST(CacheBase, FileOperationsReportCodes) {
  kvtest::TempFile file("base");
  kvCacheBase closed(file.path, false);
  char buf[8];
  EXPECT_FALSE(closed.ReadBytes(buf, 4));
  EXPECT_EQ(closed.ErrorCode(), kErrNotOpen);
  EXPECT_FALSE(closed.Seek(0, SEEK_SET));
  EXPECT_EQ(closed.ErrorCode(), kErrNotOpen);
  EXPECT_FALSE(closed.OpenFile());
  EXPECT_EQ(closed.ErrorCode(), kErrFileNotFound);

  file.Write({1, 2, 3});
  kvCacheBase r(file.path, false);
  ASSERT_TRUE(r.OpenFile());
  EXPECT_TRUE(r.OpenFile());  // already open
  EXPECT_FALSE(r.ReadBytes(buf, 4));
  EXPECT_EQ(r.ErrorCode(), kErrReadPastEof);
  r.Close();
  r.Close();
  EXPECT_FALSE(r.IsOpen());

  bool answer = false;
  r.SetProgressCallback([](void* u, uint32_t, uint32_t) { return *static_cast<bool*>(u); },
                        &answer);
  EXPECT_FALSE(r.ReportProgress(1, 2));
  EXPECT_EQ(r.ErrorCode(), kErrCancelled);
  EXPECT_FALSE(r.InError());
}

}  // namespace

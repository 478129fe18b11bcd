#include "cache/registry.h"

#include <gtest/gtest.h>

#include "fixtures.h"

using namespace KelvaneTools;
using kvtest::TempFile;

namespace {

TEST(CacheRegistry, SharesOneReaderPerFileName) {
  TempFile file("shared");
  file.Write(kvtest::GridCache(2, 2).b);
  kvCacheRegistry reg;
  int a = 0, b = 0;
  const auto first = reg.Acquire(&a, file.path);
  ASSERT_NE(first.reader, nullptr);
  EXPECT_TRUE(first.created);
  EXPECT_FALSE(first.added);
  EXPECT_TRUE(first.reader->HasIndex());
  const auto second = reg.Acquire(&b, file.path);
  EXPECT_EQ(second.reader, first.reader);
  EXPECT_TRUE(second.added);
  EXPECT_FALSE(second.created);
  EXPECT_FALSE(reg.Acquire(&b, file.path).added);  // already a user
  EXPECT_EQ(reg.Users(file.path), (std::vector<void*>{&a, &b}));
  EXPECT_EQ(reg.UserCount(file.path), 2);
  EXPECT_EQ(reg.User(file.path, 1), &b);
  EXPECT_EQ(reg.User(file.path, 2), nullptr);
  EXPECT_EQ(reg.Find(&b), first.reader);

  reg.Release(&a);
  EXPECT_EQ(reg.EntryCount(), 1);
  EXPECT_EQ(reg.Find(&a), nullptr);
  reg.Release(&b);
  EXPECT_EQ(reg.EntryCount(), 0);
  EXPECT_TRUE(reg.Users(file.path).empty());
}

TEST(CacheRegistry, SwitchingFilesAndLetterCase) {
  TempFile lower("case");
  lower.Write(kvtest::GridCache(1, 2).b);
  std::string upper = lower.path;
  upper.replace(upper.rfind("case"), 4, "CASE");
  kvCacheRegistry reg;
  int a = 0, b = 0;
  kvCacheReader* r1 = reg.Acquire(&a, lower.path).reader;
  EXPECT_TRUE(r1->HasIndex());
  EXPECT_EQ(r1->FileName(), lower.path);
  kvCacheReader* r2 = reg.Acquire(&a, upper).reader;  // a new entry: a leaves the old one
  EXPECT_EQ(r2->FileName(), upper);
  EXPECT_EQ(reg.EntryCount(), 1);
  EXPECT_TRUE(r2->InError());  // no such file with that spelling on this system

  // Joining an existing entry does not leave the previous one.
  reg.Acquire(&b, lower.path);
  reg.Acquire(&b, upper);
  EXPECT_EQ(reg.EntryCount(), 2);
  EXPECT_EQ(*reg.FileOf(&a), upper);
  reg.Release(&b);
  EXPECT_EQ(reg.EntryCount(), 1);
}

TEST(CacheRegistry, ReopensAReaderInError) {
  TempFile file("reopen");
  kvCacheRegistry reg;
  int a = 0;
  kvCacheReader* r = reg.Acquire(&a, file.path).reader;
  EXPECT_EQ(r->ErrorCode(), kErrFileNotFound);
  file.Write(kvtest::GridCache(1, 2).b);  // the missing file appears
  EXPECT_EQ(reg.Find(&a), r);
  EXPECT_FALSE(r->InError());
  EXPECT_TRUE(r->HasIndex());
  file.Write(kvtest::GridCache(1, 2).b, 60);
  r->Open();
  EXPECT_TRUE(r->InError());
  file.Write(kvtest::GridCache(3, 2).b);
  EXPECT_EQ(reg.Reader(file.path)->NumElements(), 3);
}

}  // namespace

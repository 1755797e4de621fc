// CStringCollection2: file records under folded keys.

#include "data/file_record_collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "frame/unicode.h"

namespace kelvor {
namespace {

FileRecord MakeRecord(std::string path, std::string name, std::string ext, std::int64_t size) {
  FileRecord r;
  r.SourceNr = 1;
  r.Path = std::move(path);
  r.Name = std::move(name);
  r.Extension = std::move(ext);
  r.NameKey = r.Name;
  r.SIZE = size;
  r.SizeKey = size;
  r.Attributes = 128;
  r.DateLastModified = 45000.5;
  r.DateCreated = 44000.25;
  r.RecordNumber = 999;  // Add writes over it
  return r;
}

TEST(FileRecordCollection, KeysThatDifferInCaseMeetAndTheFoundRecordIsACopy) {
  CStringCollection2 c;
  FileRecord a = MakeRecord("/Photos", "IMG_0001", "JPG", 1234);
  a.SetHash("digest-a");
  EXPECT_EQ(c.Add("KIMG_0001.JPG1234", a), 1);
  EXPECT_EQ(c.RecordNumber(1), 1);
  EXPECT_EQ(c.Key(1), "KIMG_0001.JPG1234");
  EXPECT_EQ(c.FoldedKey(1), "kimg_0001.jpg1234");

  FileRecord found;
  std::int32_t foundNode = 0;
  const FileRecord b = MakeRecord("/other", "img_0001", "jpg", 1234);
  EXPECT_EQ(c.Add("Kimg_0001.jpg1234", b, &found, &foundNode), 0);
  EXPECT_EQ(foundNode, 1);
  EXPECT_EQ(c.Count(), 1);
  EXPECT_EQ(found.RecordNumber, 1);
  EXPECT_EQ(found.Path, "/Photos");
  EXPECT_EQ(found.Name, "IMG_0001");
  EXPECT_EQ(found.Extension, "JPG");
  EXPECT_EQ(found.Hash, "digest-a");
  EXPECT_TRUE(found.HashCreated[0]);
  EXPECT_EQ(found.PicWidth, -1);

  // Writing into the copy leaves the stored record alone ...
  found.GroupID = 7;
  found.SetHash("changed");
  EXPECT_EQ(c.GroupID(1), -1);
  EXPECT_EQ(c.Hash(1), "digest-a");
  // ... until it is written back.
  c.SetRecord(found.RecordNumber, found);
  EXPECT_EQ(c.GroupID(1), 7);
  EXPECT_EQ(c.Hash(1), "changed");
  EXPECT_EQ(c.Find("KIMG_0001.jpg1234"), 1);
  EXPECT_EQ(c.Find("KIMG_0002.jpg1234"), 0);
}

TEST(FileRecordCollection, TheHundredAndFirstAddGrowsAndKeepsEveryRecord) {
  CStringCollection2 c;
  for (int i = 1; i <= 101; ++i) {
    FileRecord r = MakeRecord("/dir" + std::to_string(i % 7), "file" + std::to_string(i), "txt", i);
    r.HashArray[3] = {static_cast<std::uint8_t>(i), 2, 3};
    r.HashAudioArray = {static_cast<std::uint64_t>(i) << 40};
    r.PathInsideZip = i % 2 ? "inner/" + std::to_string(i) : "";
    ASSERT_EQ(c.Add("K" + std::to_string(i), r), i);
    if (i == 100) {
      EXPECT_EQ(c.NodesUpperBound(), 100);
      EXPECT_EQ(c.RecordsUpperBound(), 100);
      EXPECT_EQ(c.PositionIndexUpperBound(), 101);
    }
  }
  EXPECT_EQ(c.NodesUpperBound(), 150);
  EXPECT_EQ(c.RecordsUpperBound(), 150);
  EXPECT_EQ(c.PositionIndexUpperBound(), 152);
  for (int i = 1; i <= 101; ++i) {
    const FileRecord r = c.Record(i);
    ASSERT_EQ(r.RecordNumber, i);
    ASSERT_EQ(r.Name, "file" + std::to_string(i));
    ASSERT_EQ(r.Path, "/dir" + std::to_string(i % 7));
    ASSERT_EQ(r.Extension, "txt");
    ASSERT_EQ(r.SIZE, i);
    ASSERT_EQ(r.DateLastModified, 45000.5);
    ASSERT_EQ(r.HashArray[3], (std::vector<std::uint8_t>{static_cast<std::uint8_t>(i), 2, 3}));
    ASSERT_EQ(r.HashAudioArray.at(0), static_cast<std::uint64_t>(i) << 40);
    ASSERT_EQ(r.PathInsideZip, i % 2 ? "inner/" + std::to_string(i) : "");
    ASSERT_EQ(c.GetPathWithFileName(i),
              "/dir" + std::to_string(i % 7) + "/file" + std::to_string(i) + ".txt");
  }
}

TEST(FileRecordCollection, NameBuildersAndExtensionLength) {
  CStringCollection2 c;
  c.Add("K1", MakeRecord("/a/b", "Makefile", "", 10));
  c.Add("K2", MakeRecord("", "archive.tar", "gz", 10));
  EXPECT_EQ(c.ExtensionLength(1), 0);
  EXPECT_EQ(c.GetFileNameWithExtension(1), "Makefile");
  EXPECT_EQ(c.GetPathWithFileName(1), "/a/b/Makefile");
  EXPECT_EQ(c.ExtensionLength(2), 2);
  EXPECT_EQ(c.GetFileNameWithExtension(2), "archive.tar.gz");
  EXPECT_EQ(c.GetPathWithFileName(2), "/archive.tar.gz");
  const FileRecord r = c.Record(1);
  EXPECT_EQ(GetFileNameWithExtension(r), "Makefile");
  EXPECT_EQ(GetPathWithFileName(r), "/a/b/Makefile");
  std::string full = "/home/user/src";
  c.AppendPathWithFileName(2, full);
  EXPECT_EQ(full, "/home/user/src/archive.tar.gz");
  c.SetExtension(1, "mk");
  EXPECT_EQ(c.GetFileNameWithExtension(1), "Makefile.mk");
}

TEST(FileRecordCollection, HashFieldsAndArrays) {
  CStringCollection2 c;
  c.Add("K1", MakeRecord("", "a", "bin", 5));
  EXPECT_FALSE(c.HashCreated(1, 0));
  c.SetHash(1, "abc");
  EXPECT_TRUE(c.HashCreated(1, 0));
  c.SetHash(1, "");
  EXPECT_FALSE(c.HashCreated(1, 0));
  EXPECT_EQ(c.Hash(1), "");

  c.SetHashArraySize(1, 8, 10);  // no such kind: nothing happens
  c.SetHashArraySize(1, -1, 10);
  for (int k = 0; k < 8; ++k) EXPECT_TRUE(c.HashArray(1, k).empty());
  EXPECT_THROW(c.HashCreated(1, 8), CollectionError);
  c.SetHashArraySize(1, 2, 3);
  EXPECT_EQ(c.HashArray(1, 2).size(), 4u);  // bounds 0..3
  c.SetHashArrayItem(1, 2, 3, 0xAB);
  EXPECT_EQ(c.HashArrayItem(1, 2, 3), 0xAB);
  EXPECT_THROW(c.HashArrayItem(1, 2, 4), CollectionError);
  EXPECT_THROW(c.HashArrayItem(1, 5, 0), CollectionError);  // never sized
  c.SetHashCreated(1, 2, true);
  EXPECT_TRUE(c.Record(1).HashCreated[2]);

  EXPECT_THROW(c.HashAudioArrayItem(1, 0), CollectionError);
  c.SetHashAudioArraySize(1, 1);
  c.SetHashAudioArrayItem(1, 1, 0xFFFFFFFFFFFFFFFFull);
  EXPECT_EQ(c.HashAudioArray(1), (std::vector<std::uint64_t>{0, 0xFFFFFFFFFFFFFFFFull}));

  c.SetPicWidth(1, 640);
  c.SetPicRatio(1, 1.5);
  EXPECT_EQ(c.Record(1).PicWidth, 640);
  EXPECT_EQ(c.PicRatio(1), 1.5);
  EXPECT_EQ(c.PicHeight(1), 0);
}

TEST(FileRecordCollection, RemoveMovesTheSuccessorsRecordWithItsNumber) {
  CStringCollection2 c;
  for (int i = 1; i <= 20; ++i) {
    FileRecord r = MakeRecord("/p", "n" + std::to_string(i), "x", i);
    r.SetHash("h" + std::to_string(i));
    c.Add("K" + std::string(i < 10 ? "0" : "") + std::to_string(i), r);
  }
  const std::int32_t z = c.RootRef();
  ASSERT_NE(c.L(z), 0);
  ASSERT_NE(c.R(z), 0);
  std::int32_t successor = c.R(z);
  while (c.L(successor) != 0) successor = c.L(successor);
  EXPECT_EQ(c.Remove(z), z);
  EXPECT_EQ(c.Count(), 19);
  // The successor's record now lives in z's node and still carries its
  // own number: RecordNumber differs from the node.
  // Keys went in in ascending order, so the successor came later than z and
  // now stands one position further forward.
  ASSERT_GT(successor, z);
  EXPECT_EQ(c.NodeAtPosition(successor - 1), z);
  EXPECT_EQ(c.RecordNumber(successor - 1), successor);
  EXPECT_EQ(c.Record(successor - 1).RecordNumber, successor);
  // Positions behind the removed one moved down; the order is kept.
  std::vector<std::int64_t> sizes;
  for (std::int32_t i = 1; i <= c.Count(); ++i) sizes.push_back(c.SIZE(i));
  std::vector<std::int64_t> expected;
  for (int i = 1; i <= 20; ++i) {
    if (i != z) expected.push_back(i);
  }
  EXPECT_EQ(sizes, expected);
  for (std::int32_t i = 1; i <= c.Count(); ++i) {
    EXPECT_EQ(c.Hash(i), "h" + std::to_string(c.SIZE(i)));
    EXPECT_EQ(c.Find(c.Key(i)), c.NodeAtPosition(i));
  }
  // The freed node comes back first.
  EXPECT_EQ(c.Add("Knew", MakeRecord("", "new", "", 1)), successor);
  EXPECT_EQ(c.Record(c.Count()).RecordNumber, successor);
}

TEST(FileRecordCollection, PositionsBehindCountAndOutsideTheArrays) {
  CStringCollection2 c;
  EXPECT_THROW(c.GroupID(1), CollectionError);  // not initialised: no arrays
  EXPECT_EQ(c.Find("K"), 0);
  c.Add("K1", MakeRecord("", "a", "", 1));
  EXPECT_EQ(c.Name(50), "");  // inside the capacity: the empty slot 0
  EXPECT_EQ(c.GroupID(50), -1);
  EXPECT_THROW(c.Name(102), CollectionError);
  EXPECT_THROW(c.Name(0), CollectionError);
  EXPECT_THROW(c.Key(2), CollectionError);
  c.Clear();
  EXPECT_EQ(c.Count(), 0);
  EXPECT_EQ(c.Add("K1", MakeRecord("", "b", "", 1)), 1);
  EXPECT_EQ(c.Name(1), "b");
}

TEST(FileRecordCollection, ViewAddKeepsOddBytesAndSharesFolders) {
  CStringCollection2 c;
  FileRecordView v;
  v.Path = "/Musik/\xff\xfe";
  v.Name = "Lied\x80";
  v.Extension = "MP3";
  v.NameKey = "lied\x80.mp3";
  v.SIZE = 4096;
  v.SizeKey = 4000;
  v.PathInsideZip = "cd1";
  v.ExifCutFromStart = 12;
  const std::string key = "KLIED\x80.MP3\xc3\x84";
  EXPECT_EQ(c.Add(key, v), 1);
  EXPECT_EQ(c.Key(1), key);
  EXPECT_EQ(c.FoldedKey(1), "klied\x80.mp3\xc3\xa4");
  EXPECT_EQ(c.Find("klied\x80.mp3\xc3\xa4"), 1);
  const FileRecord r = c.Record(1);
  EXPECT_EQ(r.Path, "/Musik/\xff\xfe");
  EXPECT_EQ(r.Name, "Lied\x80");
  EXPECT_EQ(r.NameKey, "lied\x80.mp3");
  EXPECT_EQ(r.PathInsideZip, "cd1");
  EXPECT_EQ(r.ExifCutFromStart, 12);
  EXPECT_EQ(r.SizeKey, 4000);
  EXPECT_EQ(r.GroupID, -1);

  v.Name = "Lied2";
  v.NameKey = {};
  v.PathInsideZip = {};
  v.ExifCutFromStart = 0;
  EXPECT_EQ(c.Add("K2", v), 2);
  EXPECT_EQ(c.Path(2).data(), c.Path(1).data());  // one stored folder text
  EXPECT_EQ(c.PathInsideZip(2), "");
  EXPECT_EQ(c.NameKey(2), "");
}

TEST(FileRecordCollection, HardlinkKeysOfTheCollectionAndOfARecord) {
  CStringCollection2 c;
  FileRecord r = MakeRecord("", "a", "", 1);
  r.VolumeSerialNumber = -5;
  r.FileIndexHigh = 1;
  r.FileIndexLow = -2;
  r.NumberOfLinks = 2;
  c.Add("K", r);
  EXPECT_EQ(c.GetHardlinkIDkey(1, false), "-5|1|-2");
  EXPECT_EQ(c.GetHardlinkIDkey(1, true), "1|-2");
  EXPECT_EQ(c.GetHardlinkIDkeyFormatted(1, false), "FFFFFFFB|1|FFFFFFFE");
  EXPECT_EQ(GetHardlinkIDkey(r, false), "5-1--2");
  EXPECT_EQ(GetHardlinkIDkey(r, true), "1--2");
  EXPECT_EQ(GetHardlinkIDkeyFormatted(r, false), "5-1-FFFFFFFE");
}

TEST(FileRecordCollection, RandomAddsFindsAndRemovesAgreeWithStdMap) {
  std::mt19937 rng(777);
  CStringCollection2 c;
  std::map<std::string, std::int64_t> model;  // folded key -> SIZE
  std::vector<std::string> order;
  for (int step = 0; step < 8000; ++step) {
    std::string key = "K";
    const int len = 1 + static_cast<int>(rng() % 3);
    for (int i = 0; i < len; ++i) key.push_back("aBcDé"[rng() % 5]);
    const std::string folded = LowerCase(key);
    if (rng() % 4 != 0) {
      FileRecord found;
      const std::int32_t node = c.Add(key, MakeRecord("/d", key, "", step), &found);
      if (model.count(folded)) {
        ASSERT_EQ(node, 0);
        ASSERT_EQ(found.SIZE, model[folded]);
      } else {
        ASSERT_NE(node, 0);
        model[folded] = step;
        order.push_back(folded);
      }
    } else if (!order.empty()) {
      const auto pos = static_cast<std::int32_t>(rng() % order.size()) + 1;
      ASSERT_EQ(c.Remove(pos), pos);
      model.erase(order[pos - 1]);
      order.erase(order.begin() + (pos - 1));
    }
  }
  ASSERT_EQ(c.Count(), static_cast<std::int32_t>(order.size()));
  for (std::int32_t i = 1; i <= c.Count(); ++i) {
    ASSERT_EQ(c.FoldedKey(i), order[i - 1]);
    ASSERT_EQ(c.SIZE(i), model[order[i - 1]]);
    ASSERT_EQ(c.Find(order[i - 1]), c.NodeAtPosition(i));
  }
}

}  // namespace
}  // namespace kelvor

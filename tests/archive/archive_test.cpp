// Archive members as files of a search, on real archives made by zip, 7-Zip
// and bsdtar in temporary folders: what the listing sees, which members a
// search takes, their rows, the counters and the log lines.

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_reader.h"
#include "archive/archive_types.h"
#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "results/result_model.h"
#include "search/engine.h"
#include "search/search_test_support.h"
#include "search/source_folders.h"
#include "support/audio_samples.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

namespace fs = std::filesystem;
using test::Group;
using test::Groups;
using test::TempDir;

std::string SevenZip() {
  for (const char* p : {"/usr/bin/7zz", "/usr/bin/7z"})
    if (::access(p, X_OK) == 0) return p;
  return {};
}

// Runs a shell command in `dir`; fails the test when it fails.
void Sh(const fs::path& dir, const std::string& command) {
  const std::string line = "cd '" + dir.string() + "' && ( " + command + " ) >/dev/null 2>&1";
  ASSERT_EQ(std::system(line.c_str()), 0) << command;
}

// No free tool of Debian's main section writes RAR, so the tests build the
// simplest one by hand: RAR 4 with stored (uncompressed) members.
std::uint32_t Crc32(const std::string& bytes) {
  std::uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

std::string Le(std::uint64_t v, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
  return out;
}

// A block: its CRC (low half of the CRC-32 of the rest of the header) first.
std::string RarBlock(const std::string& afterCrc) {
  return Le(Crc32(afterCrc) & 0xFFFF, 2) + afterCrc;
}

std::string StoredRar(const std::vector<std::pair<std::string, std::string>>& members) {
  std::string out("Rar!\x1A\x07\x00", 7);
  out += RarBlock(Le(0x73, 1) + Le(0, 2) + Le(13, 2) + Le(0, 2) + Le(0, 4));
  for (const auto& [name, data] : members) {
    std::string h = Le(0x74, 1) + Le(0x8000, 2) + Le(32 + name.size(), 2);
    h += Le(data.size(), 4) + Le(data.size(), 4) + Le(3, 1) + Le(Crc32(data), 4);
    h += Le(0x5A210000, 4) + Le(20, 1) + Le(0x30, 1) + Le(name.size(), 2) + Le(0x81A4, 4) + name;
    out += RarBlock(h) + data;
  }
  out += RarBlock(Le(0x7B, 1) + Le(0, 2) + Le(7, 2));
  return out;
}

class ArchiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (SevenZip().empty() || ::access("/usr/bin/bsdtar", X_OK) != 0 ||
        ::access("/usr/bin/zip", X_OK) != 0)
      GTEST_SKIP() << "zip, 7-Zip and bsdtar are needed";
    tree_ = tmp_.Mkdir("tree");
    work_ = tmp_.Mkdir("work");
    data_ = tmp_.Mkdir("data");
    logger_ = std::make_unique<Logger>(data_ / "Kelvor4.txt", data_ / "run.txt",
                                       data_ / "lastsearch.txt");
    // Archives on, every type of the list.
    settings_.SetBool("DupVerz", "ScanArchives", true);
    settings_.Set("DupVerz", "ScanArchive", std::string(16, '1'));
    settings_.Set("DupVerz", "TempFolder", (tmp_ / "extracts").string());
  }

  // Files below work/<folder> for an archive.
  void Member(const std::string& rel, const std::string& content) {
    tmp_.Write("work/" + rel, content);
  }
  // Packs work/<folder> with `command` (run inside it) into tree/<archive>.
  void Pack(const std::string& folder, const std::string& command) { Sh(work_ / folder, command); }
  std::string Tree(const std::string& rel) const { return (tree_ / rel).string(); }

  void Criteria(std::initializer_list<int> on) { test::OnlyCriteria(settings_, on); }

  void Run() {
    SourceFolderRow r;
    r.path = tree_.string();
    SearchOptions o = Init_Variablen(settings_, texts_);
    o.FingerprintTool = "/usr/bin/fpcalc";
    if (unstatedCap_ > 0) o.ArchiveUnstatedSizeCap = unstatedCap_;
    engine_ = std::make_unique<SearchEngine>(
        SearchContext{std::move(o), texts_, *logger_, progress_, prompt_, run_});
    EXPECT_TRUE(engine_->Search_Start({r}));
  }

  // The groups, each file below the tree; a member as
  // "<archive>!<folder inside>/<name>".
  Groups Found() const {
    ResultModel& r = engine_->Result();
    const std::string prefix = tree_.string() + "/";
    Groups out;
    r.ForEachGroup([&](RowRef g) {
      Group files;
      r.ForEachFile(g, [&](RowRef f) {
        std::string p = r.File_GetPathFromNode(f);
        if (p.rfind(prefix, 0) == 0) p.erase(0, prefix.size());
        if (r.HasCell(f, CellKey::archiv)) {
          const std::size_t slash = p.rfind('/');
          const std::string inner = CellAsText(r.Cell(f, CellKey::pathA));
          p = p.substr(0, slash) + "!" + (inner.empty() ? "" : inner + "/") + p.substr(slash + 1);
        }
        files.insert(p);
        return true;
      });
      out.insert(files);
      return true;
    });
    return out;
  }

  std::string RunLog() const { return test::ReadUtf16File(data_ / "run.txt"); }
  bool Logged(const std::string& line) const { return RunLog().find(line) != std::string::npos; }
  std::vector<fs::path> Extracts() const {
    std::vector<fs::path> out;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(tmp_ / "extracts", ec), end; !ec && it != end;
         it.increment(ec))
      if (it->is_regular_file()) out.push_back(it->path());
    return out;
  }

  TempDir tmp_;
  fs::path tree_, work_, data_;
  SettingsStore settings_;
  TextCatalog texts_;
  std::unique_ptr<Logger> logger_;
  ProgressSink progress_;
  test::SilentPrompt prompt_;
  RunState run_;
  std::unique_ptr<SearchEngine> engine_;
  std::int64_t unstatedCap_ = 0;
};

// What the listing of each kind of archive gives: inner paths with "/",
// folders marked, sizes from the headers.
TEST_F(ArchiveTest, ListsTheMembersOfEveryReadableType) {
  Member("m/photo.jpg", "JPEGDATA");
  Member("m/sub/deep/note.txt", "a note");
  const std::string z = SevenZip();
  Pack("m", "zip -qr " + Tree("a.zip") + " .");
  Pack("m", z + " a -bd " + Tree("a.7z") + " .");
  Pack("m", "bsdtar -cf " + Tree("a.tar") + " .");
  Pack("m", "bsdtar -czf " + Tree("a.tgz.tar") + " .");
  Pack("m", "bsdtar --format iso9660 -cf " + Tree("a.iso") + " .");
  Pack("m", "zip -qr " + Tree("a.epub") + " .");
  Pack("m", "zip -qr " + Tree("a.cbz") + " .");
  Pack("m", z + " a -bd -v1k " + Tree("split.7z") + " .");

  for (const char* name :
       {"a.zip", "a.7z", "a.tar", "a.tgz.tar", "a.iso", "a.epub", "a.cbz", "split.7z.001"}) {
    SCOPED_TRACE(name);
    std::array<bool, 17> all{};
    all.fill(true);
    const int type = ArchiveTypeOf(name, all);
    ASSERT_GT(type, 0);
    std::map<std::string, std::int64_t> files;
    ArchiveOutcome out = ListArchive(Tree(name), type, [&](const ArchiveMember& m) {
      if (!m.isFolder) files[m.path] = m.size;
      return true;
    });
    EXPECT_EQ(out.status, ArchiveStatus::Ok) << out.error;
    std::map<std::string, std::int64_t> want{{"photo.jpg", 8}, {"sub/deep/note.txt", 6}};
    EXPECT_EQ(files, want);
  }

  // A gz file holds one member named after it.
  Sh(work_, "printf 'abc' > one.txt && gzip one.txt && mv one.txt.gz " + Tree("one.txt.gz"));
  std::vector<ArchiveMember> gz;
  ArchiveOutcome out = ListArchive(Tree("one.txt.gz"), 7, [&](const ArchiveMember& m) {
    gz.push_back(m);
    return true;
  });
  EXPECT_EQ(out.status, ArchiveStatus::Ok);
  ASSERT_EQ(gz.size(), 1u);
  EXPECT_EQ(gz[0].path, "one.txt");
  EXPECT_EQ(gz[0].size, 3);
}

// A file in a folder and the same file in a zip, a 7z and a tar archive meet
// in a search by name and size; members carry the archive as their path and
// their folder inside it.
TEST_F(ArchiveTest, MembersMeetFilesByNameAndSize) {
  tmp_.Write("tree/photos/cat.jpg", "MEOWMEOW");
  tmp_.Write("tree/other.txt", "x");
  Member("z/2023/cat.jpg", "MEOWMEOW");
  Member("z/2023/dog.jpg", "WOOF");
  Member("t/cat.jpg", "MEOWMEOW");
  Pack("z", "zip -qr " + Tree("backup.zip") + " .");
  Pack("z", SevenZip() + " a -bd " + Tree("old/backup.7z") + " .");
  Pack("t", "bsdtar -cf " + Tree("flat.tar") + " cat.jpg");
  Criteria({kCritName, kCritExtension, kCritSize});
  Run();

  EXPECT_EQ(Found(), (Groups{{"photos/cat.jpg", "backup.zip!2023/cat.jpg",
                              "old/backup.7z!2023/cat.jpg", "flat.tar!cat.jpg"},
                             {"backup.zip!2023/dog.jpg", "old/backup.7z!2023/dog.jpg"}}));
  const SearchStatistics& s = engine_->Stats();
  EXPECT_EQ(s.ArchivesSearched, 3);
  EXPECT_EQ(s.ArchivesTotal, 3);
  EXPECT_EQ(s.ArchiveFilesChecked, 5);
  EXPECT_TRUE(Logged("Durchsuchte Archive: 3"));
  EXPECT_TRUE(Logged("Dateien aus Archiven: 5"));
  EXPECT_EQ(s.DupCount, 6);
  // The log's header names the archive types searched and the size filter.
  EXPECT_TRUE(
      Logged("Option: Archivdateien durchsuchen: zip, rar, 7z, iso, cab, tar, gz, epub, "
             "cbr, nrg, lzh, lha, arj, cbz, cb7, cbt"));
  EXPECT_TRUE(Logged("Option: Ignoriere Dateien in Archiven ab einer Größe von 20 MB"));
  // The member rows carry the archive type of their archive.
  ResultModel& r = engine_->Result();
  std::set<std::int64_t> types;
  r.ForEachGroup([&](RowRef g) {
    r.ForEachFile(g, [&](RowRef f) {
      if (r.HasCell(f, CellKey::archiv))
        types.insert(std::get<std::int64_t>(r.Cell(f, CellKey::archiv)));
      return true;
    });
    return true;
  });
  EXPECT_EQ(types, (std::set<std::int64_t>{1, 4, 7}));

  // With archives off the members are not searched.
  settings_.SetBool("DupVerz", "ScanArchives", false);
  Run();
  EXPECT_EQ(Found(), Groups{});
  EXPECT_EQ(engine_->Stats().ArchiveFilesChecked, 0);
}

// Archives that cannot be read are named in the log, and the search goes on
// with the files around them.
TEST_F(ArchiveTest, UnreadableDamagedAndLockedArchivesAreLogged) {
  tmp_.Write("tree/a.txt", "same");
  tmp_.Write("tree/b/a.txt", "same");
  Member("m/x.txt", "hello");
  Member("m/sub/y.txt", "world, a longer text so that the archive has some length");
  Pack("m", "zip -qr " + Tree("whole.zip") + " .");
  // Cut in its second member: the first header still reads.
  Sh(tree_, "head -c $(( $(stat -c %s whole.zip) / 2 )) whole.zip > cut.zip");
  tmp_.Write("tree/fake.arj", "this is no archive at all");
  Pack("m", SevenZip() + " a -bd -pSecret -mhe=on " + Tree("locked.7z") + " .");
  Criteria({kCritName, kCritSize});
  Run();

  // The members read before the damage take part.
  EXPECT_EQ(Found(), (Groups{{"a.txt", "b/a.txt"},
                             {"cut.zip!x.txt", "whole.zip!x.txt"},
                             {"cut.zip!sub/y.txt", "whole.zip!sub/y.txt"}}));
  EXPECT_TRUE(Logged("INFO: Es konnten keine Dateien in der Archivdatei '" + Tree("fake.arj") +
                     "' gefunden werden! (Falsche Dateiendung?)"));
  EXPECT_TRUE(Logged("INFO: Die Archivdatei '" + Tree("locked.7z") +
                     "' ist mit einem Passwort geschützt und kann nicht durchsucht werden!"));
  // The damaged archive: libarchive's own reason behind the read error text.
  const std::string log = RunLog();
  EXPECT_NE(log.find("Beim Lesen von Datei '" + Tree("cut.zip") + "' ist ein Fehler aufgetreten: "),
            std::string::npos)
      << log;
  EXPECT_EQ(engine_->Stats().ArchivesSearched, 4);
}

// An encrypted member: kept by a search that does not read content, left out
// (and logged on request) by one that does.
TEST_F(ArchiveTest, EncryptedMembersCountOnlyWhereNoContentIsRead) {
  tmp_.Write("tree/secret.txt", "classified");
  Member("e/secret.txt", "classified");
  Pack("e", "zip -q -P pw " + Tree("vault.zip") + " secret.txt");
  Criteria({kCritName, kCritSize});
  Run();
  EXPECT_EQ(Found(), (Groups{{"secret.txt", "vault.zip!secret.txt"}}));

  Criteria({kCritContent});
  settings_.SetBool("DupVerz", "LogPasswordProtectedFiles", true);
  Run();
  EXPECT_EQ(Found(), Groups{});
  EXPECT_TRUE(Logged("INFO: Die Datei 'secret.txt' aus dem Archiv '" + Tree("vault.zip") +
                     "' ist mit einem Passwort geschützt und kann nicht entpackt werden!"));
  EXPECT_EQ(engine_->Stats().FilesExcluded, 1);
}

// The rules a member passes before the cascade: the archive size filter,
// the file filter on the member's path inside the archive, folders.
TEST_F(ArchiveTest, MemberRulesAndThePathFilter) {
  tmp_.Write("tree/keep.txt", "k");
  tmp_.Write("tree/big.bin", std::string(2048, 'b'));
  Member("m/inner/keep.txt", "k");
  Member("m/skip/keep.txt", "k");
  Member("m/big.bin", std::string(2048, 'b'));
  Sh(work_ / "m", "mkdir -p empty/folder");
  Pack("m", "zip -qr " + Tree("a.zip") + " .");
  Criteria({kCritContent});
  settings_.SetBool("DupVerz", "ZipSizeFilter", true);
  settings_.Set("DupVerz", "ZipSizeFilterSize", "2");  // 2 KiB: the 2048-byte member is out
  settings_.Set("DupVerz", "ZipSizeFilterTyp", "1");
  // An excluding file filter on a path inside the archive.
  settings_.SetBool("Dateifilter", "Verwenden", true);
  settings_.Set("DupFilter", "F0", "skip/keep.txt");
  settings_.SetInt("DupFilter", "C0", 1);
  settings_.Set("DupFilter", "Filtertyp", "0");  // what matches is left out
  Run();
  EXPECT_EQ(Found(), (Groups{{"keep.txt", "a.zip!inner/keep.txt"}}));
  const SearchStatistics& s = engine_->Stats();
  EXPECT_EQ(s.ArchiveFilesChecked, 3);
  EXPECT_EQ(s.FilesExcluded, 2);
  EXPECT_EQ(s.FilesExcludedSize, 2048 + 1);
  EXPECT_TRUE(Logged("Option: Ignoriere Dateien in Archiven ab einer Größe von 2 KB"));
  EXPECT_TRUE(Logged("Dateien ausgeschlossen: 2 ("));
}

// In a content search the members are read: a photo in a folder, in a zip
// and in a 7z archive is one group. Their checksums are made from the
// archive's stream, so no extract is written at all; a member no longer
// than the digest meets its file too.
TEST_F(ArchiveTest, ContentSearchReadsMembers) {
  // Larger than one block of the archive reader, so that a member reaches
  // the digest in several pieces.
  std::string photo(300000, 'p');
  for (std::size_t i = 0; i < photo.size(); i += 7) photo[i] = static_cast<char>('a' + i % 23);
  std::string other = photo;
  other[200000] = '#';
  tmp_.Write("tree/pics/photo.jpg", photo);
  tmp_.Write("tree/tiny.txt", "tiny");
  Member("z/photo.jpg", photo);
  Member("z/lonely.jpg", other);
  Member("z/tiny.txt", "tiny");
  Member("s/x/renamed.jpg", photo);
  Member("s/x/also.jpg", std::string(5000, 'r'));
  Pack("z", "zip -qr " + Tree("a.zip") + " .");
  Pack("s", SevenZip() + " a -bd " + Tree("b.7z") + " .");
  Criteria({kCritContent});
  settings_.Set("DupVerz", "ContentCompare", "2");
  Run();
  EXPECT_EQ(Found(), (Groups{{"pics/photo.jpg", "a.zip!photo.jpg", "b.7z!x/renamed.jpg"},
                             {"tiny.txt", "a.zip!tiny.txt"}}))
      << RunLog();
  EXPECT_GE(engine_->Stats().FilesExtracted, 4);
  EXPECT_TRUE(Logged("Entpackte Dateien: "));
  EXPECT_TRUE(Extracts().empty());
  EXPECT_FALSE(fs::exists(tree_ / "photo.jpg"));

  // Side by side the members are compared through extracts; only grouped
  // members keep theirs, never inside the tree.
  settings_.Set("DupVerz", "ContentCompare", "0");
  Run();
  EXPECT_EQ(Found(), (Groups{{"pics/photo.jpg", "a.zip!photo.jpg", "b.7z!x/renamed.jpg"},
                             {"tiny.txt", "a.zip!tiny.txt"}}))
      << RunLog();
  EXPECT_FALSE(Extracts().empty());
  for (const fs::path& p : Extracts())
    EXPECT_EQ(p.filename().string().find("lonely"), std::string::npos) << p;
}

// Music whose tags differ meets its copy inside an archive when tags are
// ignored: the member's tags are read from its extract, both with checksums
// and byte by byte, and a copy with other audio stays apart.
TEST_F(ArchiveTest, MembersMeetFilesWithTheirTagsCutOff) {
  auto tag = [](char size) { return std::string("ID3\x03\0\0\0\0\0", 9) + size; };
  std::string audio(20000, 'a');
  for (std::size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<char>(i * 7 % 251);
  std::string otherAudio = audio;
  otherAudio[15000] = static_cast<char>(otherAudio[15000] ^ 1);
  tmp_.Write("tree/song.mp3", tag('\x0A') + std::string(10, 'x') + audio);
  Member("z/song.mp3", tag('\x14') + std::string(20, 'y') + audio);
  Member("z/other.mp3", tag('\x14') + std::string(20, 'y') + otherAudio);
  Pack("z", "zip -qr " + Tree("music.zip") + " .");
  Criteria({kCritContent});
  settings_.SetBool("DupVerz", "IgnoreMP3Tags", true);
  for (const char* method : {"0", "2"}) {
    SCOPED_TRACE(method);
    settings_.Set("DupVerz", "ContentCompare", method);
    Run();
    EXPECT_EQ(Found(), (Groups{{"song.mp3", "music.zip!song.mp3"}}));
  }
  settings_.SetBool("DupVerz", "IgnoreMP3Tags", false);
  Run();
  EXPECT_TRUE(Found().empty());
}

// RAR archives are read like the others: a file meets its stored copy in a
// content search, and the other member stays apart.
TEST_F(ArchiveTest, RarMembersAreRead) {
  const std::string body(4000, 'r');
  tmp_.Write("tree/report.doc", body);
  tmp_.Write("tree/old.rar",
             StoredRar({{"report.doc", body}, {"other.doc", std::string(4000, 's')}}));
  std::map<std::string, std::int64_t> files;
  std::array<bool, 17> all{};
  all.fill(true);
  ArchiveOutcome out =
      ListArchive(Tree("old.rar"), ArchiveTypeOf("old.rar", all), [&](const ArchiveMember& m) {
        files[m.path] = m.size;
        return true;
      });
  EXPECT_EQ(out.status, ArchiveStatus::Ok) << out.error;
  EXPECT_EQ(files,
            (std::map<std::string, std::int64_t>{{"other.doc", 4000}, {"report.doc", 4000}}));
  Criteria({kCritContent});
  Run();
  EXPECT_EQ(Found(), (Groups{{"report.doc", "old.rar!report.doc"}}));
}

// Members whose names point out of any folder ("../", absolute paths) are
// extracted under safe names inside the temporary folder, nowhere else.
TEST_F(ArchiveTest, MemberNamesNeverChooseWhereExtractsGo) {
  const std::string text(3000, 'e');
  tmp_.Write("tree/outside.txt", text);
  tmp_.Write("tree/etc/passwd", text);
  Member("outside.txt", text);
  Member("m/etc/passwd", text);
  Pack("m", "bsdtar -P -cf " + Tree("evil.tar") + " ../outside.txt " +
                (work_ / "m/etc/passwd").string());
  Criteria({kCritContent});
  settings_.Set("DupVerz", "ContentCompare", "0");  // side by side: the extracts stay while grouped
  Run();
  const std::string abs = (work_ / "m/etc").string().substr(1);
  EXPECT_EQ(Found(), (Groups{{"outside.txt", "etc/passwd", "evil.tar!../outside.txt",
                              "evil.tar!" + abs + "/passwd"}}));
  std::set<std::string> names;
  for (const fs::path& p : Extracts()) {
    EXPECT_EQ(p.parent_path().parent_path(), tmp_ / "extracts") << p;
    names.insert(p.filename().string().substr(p.filename().string().find('_') + 1));
  }
  EXPECT_EQ(names, (std::set<std::string>{"outside.txt", "passwd"}));
  EXPECT_FALSE(fs::exists(tmp_ / "outside.txt"));
  EXPECT_FALSE(fs::exists(tmp_ / "extracts" / "outside.txt"));
}

// A temporary folder that runs full: the member that could not be extracted
// is named in the log with the system's reason, no partial extract stays,
// and the search goes on with the rest.
TEST_F(ArchiveTest, AFullTemporaryFolderLeavesNoPartialExtract) {
  const std::string big(200000, 'b');
  tmp_.Write("tree/big.bin", big);
  tmp_.Write("tree/doc.txt", "identical text");
  Member("z/big.bin", big);
  Member("z/doc.txt", "identical text");
  Pack("z", "zip -qr " + Tree("a.zip") + " .");
  Criteria({kCritContent});
  settings_.Set("DupVerz", "ContentCompare", "0");  // side by side: members are extracted
  FileSystemFaults faults;
  faults.Fail(FsCall::WriteFile, "_big.bin", ENOSPC);
  {
    FileSystemFaults::Scope scope(&faults);
    Run();
  }
  EXPECT_EQ(Found(), (Groups{{"doc.txt", "a.zip!doc.txt"}})) << RunLog();
  EXPECT_TRUE(Logged(texts_.Get(txt::T9583, {"big.bin", Tree("a.zip"), ""}))) << RunLog();
  EXPECT_TRUE(Logged(ErrorText(ENOSPC))) << RunLog();
  for (const fs::path& p : Extracts())
    EXPECT_EQ(p.filename().string().find("big"), std::string::npos) << p;
}

// Byte by byte the extracts are compared side by side the same way.
TEST_F(ArchiveTest, SideBySideComparesExtracts) {
  tmp_.Write("tree/doc.txt", "identical text");
  Member("z/doc.txt", "identical text");
  Member("z/near.txt", "identical texT");
  Pack("z", "bsdtar --format zip -cf " + Tree("a.zip") + " .");
  Criteria({kCritContent});
  settings_.Set("DupVerz", "ContentCompare", "0");
  Run();
  EXPECT_EQ(Found(), (Groups{{"doc.txt", "a.zip!doc.txt"}}));
}

}  // namespace
}  // namespace kelvor

namespace kelvor {
namespace {

// The counting pass opens no archive; the members found by the listing join
// the totals, so the share of duplicates is taken over files and members.
TEST_F(ArchiveTest, DuplicateShareCountsTheMembers) {
  for (int i = 0; i < 10; ++i) Member("z/copy" + std::to_string(i) + ".txt", "same text");
  Pack("z", "zip -qr " + Tree("many.zip") + " .");
  Criteria({kCritSize});
  Run();
  EXPECT_EQ(engine_->Stats().ArchiveFilesTotal, 10);
  EXPECT_EQ(engine_->Stats().ArchiveFilesChecked, 10);
  // 10 duplicates among the zip and its 10 members: 90%, never 1000%.
  EXPECT_TRUE(Logged("Duplikate: 10 (90%)")) << RunLog();
  EXPECT_TRUE(Logged("Dateien aus Archiven: 10")) << RunLog();
  EXPECT_FALSE(Logged("Dateien aus Archiven: 10 /")) << RunLog();
}

// A picture in a folder and the same picture inside a zip are similar
// pictures: the member is measured through its extract, not its archive.
TEST_F(ArchiveTest, SimilarPicturesMeasureMembersThroughTheirExtracts) {
  if (::access("/usr/bin/convert", X_OK) != 0) GTEST_SKIP() << "ImageMagick is needed";
  Sh(work_, "mkdir -p z && convert -size 256x192 -seed 7 plasma:fractal -quality 92 z/photo.jpg");
  Sh(work_, "convert -size 256x192 -seed 8 plasma:fractal -quality 92 z/other.jpg");
  fs::copy_file(work_ / "z/photo.jpg", tree_ / "photo.jpg");
  Pack("z", "zip -qr " + Tree("pics.zip") + " .");
  Criteria({kCritSimilarPics});
  settings_.Set("DupVerz", "SimiliarImagesAlgo", "2");
  settings_.Set("DupVerz", "SimilarPicsThumbSizeIndex", "1");
  settings_.Set("DupVerz", "SimilarPicsMatchPercent", "91");
  Run();
  EXPECT_EQ(Found(), (Groups{{"photo.jpg", "pics.zip!photo.jpg"}})) << RunLog();
  EXPECT_GT(engine_->Stats().FilesExtracted, 0);
  // The archive itself is never read as a picture.
  EXPECT_FALSE(Logged("pics.zip'")) << RunLog();
  // Only the grouped member keeps its extract.
  for (const fs::path& p : Extracts())
    EXPECT_NE(p.filename().string().find("photo.jpg"), std::string::npos) << p;
}

// Similar music likewise: a tune in a folder and in a zip are one group,
// another tune in the zip stays out.
TEST_F(ArchiveTest, SimilarMusicMeasuresMembersThroughTheirExtracts) {
  const test::AudioSamples& s = test::SharedAudioSamples();
  if (!s.problem.empty()) GTEST_SKIP() << "test audio: " << s.problem;
  fs::create_directories(work_ / "z");
  fs::copy_file(s.dir / "tune.wav", tree_ / "tune.wav");
  fs::copy_file(s.dir / "tune.flac", work_ / "z/tune.flac");
  fs::copy_file(s.dir / "other.wav", work_ / "z/other.wav");
  Pack("z", "zip -qr " + Tree("music.zip") + " .");
  Criteria({kCritSimilarAudio});
  Run();
  EXPECT_EQ(Found(), (Groups{{"tune.wav", "music.zip!tune.flac"}})) << RunLog();
  EXPECT_FALSE(Logged("music.zip'")) << RunLog();
}

// A run that crashed leaves its folder of extracts behind: the next run
// with archives removes its extracts, and nothing else, never through a link.
TEST_F(ArchiveTest, LeftoversOfACrashedRunAreRemovedAtStart) {
  const fs::path root = tmp_ / "extracts";
  const std::string gone = "run-999999999-";  // beyond any process id
  tmp_.Write("extracts/" + gone + "1/3_photo.jpg", "extract");
  tmp_.Write("extracts/" + gone + "1/12_a.txt", "extract");
  tmp_.Write("extracts/" + gone + "2/4_kept.txt", "not an extract of that folder");
  tmp_.Write("extracts/" + gone + "2/notes.txt", "the user's");
  tmp_.Write("victim/5_x.txt", "outside");
  fs::create_directory_symlink(tmp_ / "victim", root / (gone + "3"));
  fs::create_symlink(tmp_ / "victim/5_x.txt", root / (gone + "2") / "6_link.txt");
  tmp_.Write("extracts/run-1-1/7_live.txt", "a running process's");  // pid 1 lives
  tmp_.Write("extracts/mine/8_y.txt", "not a run folder");
  tmp_.Write("tree/a.txt", "x");
  Criteria({kCritSize});
  Run();
  EXPECT_FALSE(fs::exists(root / (gone + "1")));
  EXPECT_FALSE(fs::exists(root / (gone + "2") / "4_kept.txt"));
  EXPECT_TRUE(fs::exists(root / (gone + "2") / "notes.txt"));
  EXPECT_TRUE(fs::is_symlink(root / (gone + "2") / "6_link.txt"));
  EXPECT_TRUE(fs::is_symlink(root / (gone + "3")));
  EXPECT_TRUE(fs::exists(tmp_ / "victim/5_x.txt"));
  EXPECT_TRUE(fs::exists(root / "run-1-1/7_live.txt"));
  EXPECT_TRUE(fs::exists(root / "mine/8_y.txt"));
  EXPECT_TRUE(Logged("Temporäre Dateien eines abgebrochenen Suchlaufs gelöscht: 3")) << RunLog();
}

// A gz stream states no size; one that unpacks past the cap (a bomb) is
// left out with a log line and never extracted, a small one is searched.
TEST_F(ArchiveTest, AStreamWithoutStatedSizeIsCapped) {
  if (::access("/usr/bin/gzip", X_OK) != 0) GTEST_SKIP() << "gzip is needed";
  Sh(tree_, "head -c 3000000 /dev/zero | gzip -n > bomb.gz");
  Sh(tree_, "head -c 1000 /dev/zero > plain.bin && gzip -nc plain.bin > small.gz");
  unstatedCap_ = 1000000;
  Criteria({kCritContent});
  Run();
  EXPECT_EQ(Found(), (Groups{{"plain.bin", "small.gz!small"}})) << RunLog();
  EXPECT_TRUE(
      Logged("Die Datei 'bomb' aus dem Archiv '" + Tree("bomb.gz") + "' gibt ihre Größe nicht an"))
      << RunLog();
  for (const fs::path& p : Extracts())
    EXPECT_EQ(p.filename().string().find("bomb"), std::string::npos) << p;
  EXPECT_GE(engine_->Stats().FilesExcluded, 1);
}

}  // namespace
}  // namespace kelvor

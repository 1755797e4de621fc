// Time of the file manager on a tree of groups with all but one file of
// each marked: dry run, delete, hard links, trash. Not run by the tests.
//
//   kelvor_file_manager_bench [GROUPS] [FILES_PER_GROUP]

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "frame/formats.h"
#include "results/file_manager.h"
#include "results/result_model.h"

using namespace kelvor;
namespace fs = std::filesystem;

namespace {

void Build(const fs::path& root, int groups, int per, ResultModel& m) {
  ResultOptions o;
  o.SourceFolders = {root.string()};
  m.SetOptions(o);
  m.Report_Create_Root_Node();
  for (int g = 0; g < groups; ++g) {
    const std::string content = "group " + std::to_string(g) + std::string(4000, 'x');
    const int gn =
        m.AddGroupRow("g" + std::to_string(g), static_cast<std::int64_t>(content.size()));
    for (int f = 0; f < per; ++f) {
      const fs::path dir = root / std::to_string(f) / std::to_string(g % 50);
      fs::create_directories(dir);
      const fs::path p = dir / ("f" + std::to_string(g) + ".dat");
      std::ofstream(p, std::ios::binary) << content;
      struct stat st {};
      ::stat(p.c_str(), &st);
      const RowRef r = m.AddFileRowRaw(gn, p.filename().string(), dir.string(), st.st_size, 1);
      m.SetCell(r, CellKey::dateVal, DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec));
      if (f > 0) m.File_Select(r, true);
    }
    m.Report_Set_Group_Checkbox_Image(m.GroupRowByNumber(gn));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int groups = argc > 1 ? std::atoi(argv[1]) : 1000;
  const int per = argc > 2 ? std::atoi(argv[2]) : 3;
  char tmpl[] = "/tmp/kelvor-fm-bench-XXXXXX";
  if (!::mkdtemp(tmpl)) return 1;
  const fs::path base = tmpl;
  struct Case {
    const char* name;
    FileAction action;
    LinkOption link;
    bool dry;
  } cases[] = {{"dry run", FileAction::Delete, LinkOption::None, true},
               {"delete", FileAction::Delete, LinkOption::None, false},
               {"hard links", FileAction::Delete, LinkOption::Hardlink, false},
               {"trash", FileAction::Trash, LinkOption::None, false}};
  for (const Case& c : cases) {
    const fs::path root = base / "tree";
    fs::remove_all(root);
    ResultModel m;
    Build(root, groups, per, m);
    FileManagerOptions o;
    o.Aktion = c.action;
    o.Link = c.link;
    o.DryRun = c.dry;
    o.SecureHint = false;
    FileManagerContext ctx;
    ctx.actionLog = base / "actions.txt";
    ctx.trash = TrashOptions{(base / "data").string(), ::getuid()};
    const auto t0 = std::chrono::steady_clock::now();
    const FileManagerReport rep = Process_Selected_Files(m, o, ctx);
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("%-10s %6d files done in %7.3f s  (%6.1f us/file)\n", c.name, rep.done, s,
                rep.done ? s * 1e6 / rep.done : 0.0);
  }
  fs::remove_all(base);
  return 0;
}

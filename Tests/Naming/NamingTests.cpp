// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Naming/CameraKey.h"
#include "MediaKit/Naming/FolderWalk.h"
#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Naming/Reference.h"
#include "MediaKit/Naming/SavedName.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;
using testing::writeFile;

TEST(Kinds, comeFromTheExtensionInAnyCase) {
  const struct {
    const char* name;
    std::optional<Kind> kind;
  } rows[] = {{"GX010123.MP4", Kind::video},
              {"a.b.Lrv", Kind::video},
              {"clip.3gp", Kind::video},
              {"IMG_1.JPE", Kind::photo},
              {"x.CR3", Kind::raw},
              {"x.3fr", Kind::raw},
              {"notes.txt", {}},
              {".mp4", {}},
              {"mp4", {}},
              {"clip.", {}},
              {"clip.mp4.part", {}}};
  for (const auto& [name, kind] : rows) EXPECT_EQ(kindOf(name), kind) << name;
}

TEST(CameraKeys, endBeforeTheFirstNumberOfAnyScript) {
  const struct {
    const char* name;
    const char* key;
  } rows[] = {{"GX010123.MP4", "GX"},  {"DJI_0001.MP4", "DJI_"}, {"gx010123.mp4", "GX"},
              {"20240501_1.mp4", ""},  {"clip.mp4", "CLIP.MP"},  {"été１２.mov", "ÉTÉ"},
              {"видео٣.mp4", "ВИДЕО"}, {"写真①.jpg", "写真"},    {"\xFFzz7.mp4", "\xFFZZ"},
              {"/a1/b2/IMG_9", "IMG_"}};
  for (const auto& [name, key] : rows) EXPECT_EQ(cameraKey(name), key) << name;
}

TEST(References, areChosenByKeyAndExtensionThenByKeyThenAmongTheRest) {
  const auto video = [](const char* name) { return NamedFile{name, Kind::video}; };
  const std::vector<NamedFile> healthy{{"GX1.JPG", Kind::photo}, video("A1.MP4"),
                                       video("DJI_1.MP4"),       video("GX1.MOV"),
                                       video("GX2.MP4"),         video("GX3.MP4")};
  const std::vector<NamedFile> broken{video("DJI_7.MP4")};
  const struct {
    NamedFile damaged;
    std::optional<std::size_t> expected;
  } rows[] = {{video("GX9.mp4"), 4},          {video("GX9.MOV"), 3},
              {video("gx9.LRV"), 3},          {video("CANON1.MP4"), 2},
              {{"IMG1.JPG", Kind::photo}, 0}, {{"GX1.CR2", Kind::raw}, {}}};
  for (const auto& [damaged, expected] : rows) {
    EXPECT_EQ(chooseReference(damaged, healthy, broken), expected) << damaged.path;
  }
  EXPECT_EQ(chooseReference(video("CANON1.MP4"), healthy, {}), 1U);
  EXPECT_EQ(chooseReference({"a.jpg", Kind::photo}, std::span(healthy).subspan(1), {}),
            std::nullopt);
}

TEST(SavedNames, countUpAndKeepTheExtension) {
  const struct {
    const char* original;
    SavedAs how;
    unsigned attempt;
    const char* expected;
  } rows[] = {{"/v/clip.MP4", SavedAs::repaired, 1, "clip (repaired).MP4"},
              {"/v/clip.MP4", SavedAs::repaired, 3, "clip (repaired 3).MP4"},
              {"clip", SavedAs::repaired, 1, "clip (repaired).mov"},
              {"IMG_0001.CR3", SavedAs::rescued, 1, "IMG_0001 (rescued).jpg"},
              {"GX010123.MP4", SavedAs::joined, 2, "GX010123 (joined 2).MP4"},
              {"旅行.2024.mov", SavedAs::repaired, 1, "旅行.2024 (repaired).mov"}};
  for (const auto& [original, how, attempt, expected] : rows) {
    EXPECT_EQ(savedName(original, how, attempt), expected);
  }
}

TEST(SavedNames, fitTheFileSystemWithoutCuttingACharacter) {
  std::string stem;
  while (stem.size() + 3 + 4 <= 255) stem += "旅";
  const std::string name = savedName(stem + ".mp4", SavedAs::repaired, 12);
  EXPECT_GT(name.size(), 252U);
  EXPECT_LE(name.size(), 255U);
  EXPECT_TRUE(name.ends_with("旅 (repaired 12).mp4"));
  const TemporaryFolder folder;
  writeFile(folder / name, {});
}

TEST(FolderWalks, findClipsInNameOrderAndLeaveOutWhatIsHiddenOrPacked) {
  const TemporaryFolder folder;
  for (const char* name : {"b/z.mp4", "b/a/1.jpg", "a.MP4", "c.nef", ".hidden.mp4", ".git/x.mp4",
                           "notes.txt", "Mine.photoslibrary/originals/1.jpg", "写真/映像.mov"}) {
    fs::create_directories((folder / name).parent_path());
    writeFile(folder / name, {});
  }
  fs::create_symlink("b/z.mp4", folder / "link.mp4");
  fs::create_symlink("nowhere", folder / "dangling.mp4");
  fs::create_directory_symlink(".", folder / "b" / "circle");
  fs::create_directory(folder / "folder.mp4");
  std::vector<std::string> found;
  for (const fs::path& file : walkFolder(folder.path()).files) {
    found.push_back(file.lexically_relative(folder.path()).string());
  }
  EXPECT_EQ(found, (std::vector<std::string>{"a.MP4", "b/a/1.jpg", "b/z.mp4", "c.nef", "link.mp4",
                                             "写真/映像.mov"}));
  EXPECT_EQ(walkFolder(folder / "missing").unreadable, std::vector{folder / "missing"});

  SeenFiles seen;
  EXPECT_TRUE(seen.isNew(folder / "b/z.mp4"));
  EXPECT_FALSE(seen.isNew(folder / "b/../b/./z.mp4"));
  EXPECT_FALSE(seen.isNew(folder / "link.mp4"));
  EXPECT_TRUE(seen.isNew(folder / "missing.mp4"));
  EXPECT_FALSE(seen.isNew(folder / "b/../missing.mp4"));
}

}  // namespace
}  // namespace tallowmark

// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Join/Recordings.h"

namespace tallowmark::ClipJoin {
namespace {

constexpr std::uint64_t full = 3'900'000'000;
constexpr std::uint64_t ended = 1'000'000'000;

TEST(CameraNames, tellGoProChapters) {
  struct Row {
    const char* name;
    const char* key;  // null: no chapter
    int order;
  };
  for (const Row& row : {
           Row{"GH011234.MP4", "GH1234", 1},
           Row{"gh011234.mp4", "GH1234", 1},
           Row{"GX990042.MP4", "GX42", 99},
           Row{"GP021234.MP4", "GP1234", 2},
           Row{"GOPR1234.MP4", "GP1234", 0},
           Row{"GOPR0042.MP4", "GP42", 0},
           Row{"GOPR12A4.MP4", nullptr, 0},
           Row{"GH011234.MOV", nullptr, 0},
           Row{"GH01123.MP4", nullptr, 0},
           Row{"GHA11234.MP4", nullptr, 0},
           Row{"GL011234.MP4", nullptr, 0},
           Row{"GH01123é.MP4", nullptr, 0},
           Row{"GH011234 (1).MP4", nullptr, 0},
           Row{".MP4", nullptr, 0},
       }) {
    const auto chapter = goProChapter(row.name);
    ASSERT_EQ(chapter.has_value(), row.key != nullptr) << row.name;
    if (chapter) {
      EXPECT_EQ(*chapter, (Chapter{row.key, row.order})) << row.name;
    }
  }
}

TEST(CameraNames, tellDJINumbers) {
  struct Row {
    const char* name;
    std::optional<int> number;
  };
  for (const Row& row : {
           Row{"DJI_0001.MP4", 1},
           Row{"dji_0123.mov", 123},
           Row{"DJI_20240501123045_0007_D.MP4", 7},
           Row{"DJI_20240501123045_0007.MP4", 7},
           Row{"DJI__0009.MP4", 9},
           Row{"DJI_ééééééééééééé_0003.MP4", std::nullopt},
           Row{"DJI_éééééééééééééé_0003.MP4", 3},
           Row{"DJI_2024050112304_0007.MP4", std::nullopt},
           Row{"DJI_001.MP4", std::nullopt},
           Row{"DJI_-001.MP4", std::nullopt},
           Row{"DJI_.MP4", std::nullopt},
           Row{"DJI_0001.LRF", std::nullopt},
           Row{"XDJI_0001.MP4", std::nullopt},
       }) {
    EXPECT_EQ(djiNumber(row.name), row.number) << row.name;
  }
}

TEST(CameraNames, groupSplitRecordings) {
  struct Row {
    std::vector<FileName> files;
    std::vector<Group> groups;
  };
  const std::vector<Row> rows{
      {{{"GH011234.MP4"}}, {}},
      {{{"GH011234.MP4"}, {"GH031234.MP4"}}, {}},
      {{{"GH011234.MP4"}, {"GH021234.MP4"}, {"gh021234.mp4"}}, {}},
      {{{"GH011234.MP4"}, {"GX021234.MP4"}}, {}},
      {{{"GP011234.MP4"}, {"GOPR1234.MP4"}, {"GP021234.MP4"}}, {{1, 0, 2}}},
      {{{"DJI_0001.MP4", full}, {"DJI_0002.MP4", ended}}, {{0, 1}}},
      {{{"DJI_0001.MP4", 3'699'999'999}, {"DJI_0002.MP4", full}}, {}},
      {{{"DJI_0012.MP4", ended},
        {"DJI_0011.MP4", ended},
        {"DJI_0010.MP4", full},
        {"DJI_0009.MP4", full}},
       {{3, 2, 1}}},
      {{{"GX020001.MP4"}, {"GH010002.MP4"}, {"holiday.mp4"}, {"GH020002.MP4"}, {"GX010001.MP4"}},
       {{1, 3}, {4, 0}}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(splitRecordings(row.files), row.groups) << row.files.front().name;
  }
}

TEST(Recordings, areFoundAcrossFolders) {
  struct Row {
    const char* label;
    std::vector<LocatedFile> files;
    std::vector<Group> groups;
    std::vector<std::size_t> copies;
    std::vector<std::string> sentences;
  };
  const std::vector<Row> rows{
      {"two cards", {{"b", {"GX020007.MP4", 9}}, {"a", {"GX010007.MP4", 8}}}, {{1, 0}}, {}, {}},
      {"copied twice",
       {{"a", {"GX010007.MP4", 8}},
        {"a", {"GX020007.MP4", 9}},
        {"b", {"gx010007.mp4", 8}},
        {"b", {"gx020007.mp4", 9}}},
       {{0, 1}},
       {2, 3},
       {}},
      {"two cameras",
       {{"a", {"GX010007.MP4", 8}},
        {"b", {"GX010007.MP4", 7}},
        {"a", {"GX020007.MP4", 9}},
        {"b", {"GX020007.MP4", 6}}},
       {{0, 2}, {1, 3}},
       {},
       {}},
      {"a chapter missing",
       {{"a", {"GX010007.MP4", 8}}, {"a", {"GX030007.MP4", 8}}, {"a", {"GX050007.MP4", 8}}},
       {},
       {},
       {"GX020007.MP4 and GX040007.MP4 are missing from this recording. Add them to join the whole "
        "of it."}},
      {"the first one missing",
       {{"a", {"GP010007.MP4", 8}}, {"a", {"GP020007.MP4", 8}}},
       {{0, 1}},
       {},
       {"GOPR0007.MP4 is missing from this recording. Add it to join the whole of it."}},
      {"two lenses of one drone",
       {{"a", {"DJI_20240501123045_0007_T.MP4", full}},
        {"a", {"DJI_20240501123045_0007_W.MP4", full}},
        {"a", {"DJI_20240501124045_0008_T.MP4", ended}},
        {"a", {"DJI_20240501124045_0008_W.MP4", ended}}},
       {{0, 2}, {1, 3}},
       {},
       {}},
      {"the end missing",
       {{"a", {"DJI_0007.MP4", full}}, {"a", {"DJI_0009.MP4", ended}}},
       {},
       {},
       {"This recording seems to go on after DJI_0007.MP4, but the next file is missing."}},
  };
  for (const Row& row : rows) {
    const FoundRecordings found = findRecordings(row.files);
    std::vector<std::string> sentences;
    for (const auto& recording : found.incomplete) sentences.push_back(recording.sentence);
    EXPECT_EQ(found.groups, row.groups) << row.label;
    EXPECT_EQ(found.copies, row.copies) << row.label;
    EXPECT_EQ(sentences, row.sentences) << row.label;
  }
}

}  // namespace
}  // namespace tallowmark::ClipJoin

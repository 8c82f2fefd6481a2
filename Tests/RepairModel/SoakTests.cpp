// SPDX-License-Identifier: GPL-3.0-or-later
#include <QTest>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <thread>

#include "Chapters.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Rescue/Checking.h"
#include "ModelTests.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Paths = std::vector<fs::path>;

int fromEnvironment(const char* name, int otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr ? otherwise : std::atoi(value);
}

bool contains(const Paths& files, const fs::path& file) {
  return std::find(files.begin(), files.end(), file) != files.end();
}
bool isWithin(const Paths& parts, const Paths& others) {
  return std::all_of(parts.begin(), parts.end(),
                     [&](const fs::path& part) { return contains(others, part); });
}

/// Where an item may go from where it is.
using Roads = std::map<std::string, std::set<std::string>>;
const Roads clipRoads{
    {"checking", {"healthy", "truncated", "missingIndex", "rawFile", "notAVideo", "failed"}},
    {"truncated", {"repairing"}},
    {"rawFile", {"repairing"}},
    {"missingIndex", {"repairing"}},
    {"repairing", {"preview", "saved", "failed", "missingIndex"}},
    {"preview", {"repairing", "missingIndex"}},
    {"failed", {"checking", "missingIndex"}},
    {"notAVideo", {"checking"}},
    {"healthy", {}},
    {"saved", {}}};
const Roads joinRoads{{"checking", {"preview", "incompatible", "failed"}},
                      {"preview", {"joining", "checking"}},
                      {"joining", {"saved", "incompatible", "failed"}},
                      {"failed", {"checking"}},
                      {"incompatible", {"checking"}},
                      {"saved", {}}};

/// A user who does what comes to mind, fast, while a card is plugged in and pulled out, and beside
/// whom stands one who keeps the books.
class SoakTests : public ModelTests {
 protected:
  void SetUp() override;
  void putRealFilesOnTheCard();
  void doSomething();
  void checkBooks();
  void checkWhenSettled();
  void checkCopies() const;

  int dice(int sides) { return std::uniform_int_distribution<>(1, sides)(random); }
  template <class Thing>
  const Thing& anyOf(const std::vector<Thing>& things) {
    return things[std::uniform_int_distribution<std::size_t>(0, things.size() - 1)(random)];
  }
  std::vector<QUuid> ids() const {
    std::vector<QUuid> all;
    for (const Clip& clip : model->clips()) all.push_back(clip.id);
    for (const Join& join : model->joins()) all.push_back(join.id);
    return all;
  }
  QUuid anyItem() {
    const auto all = ids();
    return all.empty() ? QUuid::createUuid() : anyOf(all);
  }
  template <class Item>
  static const Item* find(const std::vector<Item>& items, const QUuid& id) {
    const auto isIt = [&](const Item& item) { return item.id == id; };
    const auto found = std::find_if(items.begin(), items.end(), isIt);
    return found == items.end() ? nullptr : &*found;
  }

  void addSome();
  void removeOne();
  void retryOne();
  void setReference();
  void saveSome();
  void joinSome();
  void selectOne();
  void pullOut();
  void plugIn();
  void grow();
  void clear();

  std::mt19937 random;
  Paths chapters;
  Paths card;
  std::map<fs::path, Fingerprint> prints;
  fs::path aside = folder / "aside";
  fs::path growing = folder / "GX010009.MOV";
  // The books: what was given and not yet listed, what must be listed, in this order, …
  std::deque<Paths> pending;
  Paths listed;
  // … what the user chose and joined, and the recordings he wanted no more.
  std::optional<fs::path> chosen;
  std::size_t usersJoins = 0;
  std::vector<Paths> unwanted;
  std::atomic<unsigned> previews = 0;
};

void SoakTests::SetUp() {
  ModelTests::SetUp();
  if (IsSkipped()) return;
  ClipRecipe sixSeconds;
  sixSeconds.seconds = 6;
  const Paths cuts = cutIntoChapters(makeClip(sixSeconds), folder.path(), 3);
  for (std::size_t i = 0; i < cuts.size(); ++i) {
    chapters.push_back(folder / ("GX0" + std::to_string(i + 1) + "0123.MP4"));
    fs::rename(cuts[i], chapters.back());
  }
  card = chapters;
  card.insert(card.end(), {good, cut, noIndex, goodPhoto, cutPhoto, headlessPhoto, raw, growing,
                           folder / "notes.mp4", folder / "notes.jpg", folder / "nowhere.MP4"});
  fs::copy_file(cut, growing);
  for (const char* name : {"notes.mp4", "notes.jpg"}) writeFile(folder / name, Bytes(100, 'x'));
  putRealFilesOnTheCard();
  for (const fs::path& file : card) {
    if (fs::exists(file)) prints[file] = fingerprint(file);
  }
  fs::create_directory(aside);

  surroundings.previewer = [this](const fs::path& clip, const fs::path& preview, double,
                                  const StopToken& stop) {
    const unsigned which = ++previews;
    std::this_thread::sleep_for(std::chrono::milliseconds(which % 5));
    stop.check();
    return which % 7 != 0 && fs::copy_file(clip, preview);
  };
  startModel();
  QObject::connect(model.get(), &RepairModel::filesAdded, [this](int count) {
    ASSERT_FALSE(pending.empty());
    int isNew = 0;
    for (const fs::path& file : pending.front()) {
      if (contains(listed, file)) continue;
      ++isNew;
      listed.push_back(file);
      std::erase_if(unwanted, [&](const Paths& parts) { return contains(parts, file); });
    }
    EXPECT_EQ(count, isNew);
    pending.pop_front();
  });
}

void SoakTests::putRealFilesOnTheCard() {
  const std::pair<const char*, const char*> names[] = {
      {"video/samsung_sef_slowmo_h264.mp4", "20190101_1.mp4"},
      {"video/twos_pcm_h264_synth.mov", "MVI_0001.MOV"},
      {"video/iphone12promax_hevc10_hdr.mov", "IMG_0010.MOV"},
      {"jpeg/PanasonicDS_p1000241.jpg", "P1000241.JPG"},
      {"jpeg/PanasonicDS_p1000242.jpg", "P1000242.JPG"},
      {"raw/sony_a330_truncated.arw", "DSC00001.ARW"}};
  for (const auto& [from, to] : names) {
    if (const auto file = corpusFile(from)) {
      card.push_back(folder / to);
      fs::copy_file(*file, card.back());
    }
  }
  if (const auto clip = corpusFile("video/twos_pcm_h264_synth.mov")) {
    card.push_back(writeFile(folder / "MVI_0002.MOV", withoutIndex(contentsOf(*clip))));
  }
}

void SoakTests::addSome() {
  Paths files;
  for (int count = dice(5); count > 0; --count) {
    files.push_back(dice(3) == 1 ? anyOf(chapters) : anyOf(card));
  }
  pending.push_back(files);
  model->add(files);
}

void SoakTests::removeOne() {
  const QUuid id = anyItem();
  if (const Clip* clip = find(model->clips(), id)) {
    std::erase(listed, clip->url);
    if (chosen == clip->url) chosen.reset();
  } else if (const Join* join = find(model->joins(), id)) {
    if (join->foundAutomatically) unwanted.push_back(join->parts);
    usersJoins -= join->foundAutomatically ? 0 : 1;
  }
  model->remove(id);
}

void SoakTests::retryOne() {
  const QUuid id = anyItem();
  const Clip* clip = find(model->clips(), id);
  const Join* join = find(model->joins(), id);
  if ((clip != nullptr && (clip->is<Clip::Failed>() || clip->is<Clip::NotAVideo>())) ||
      (join != nullptr && (join->is<Join::Failed>() || join->is<Join::Incompatible>()))) {
    model->retry(id);
  }
}

void SoakTests::setReference() {
  const fs::path file = anyOf(card);
  try {
    model->setReference(file);
    chosen = file;
  } catch (const MediaError&) {
  }
}

void SoakTests::saveSome() {
  std::vector<QUuid> some = model->savableIDs();
  if (dice(3) == 1) some = {anyItem(), anyItem(), QUuid::createUuid()};
  model->save(some, dice(8) == 1 ? fs::path("/proc/copies") : out);
}

void SoakTests::joinSome() {
  Paths parts(static_cast<std::size_t>(dice(3)));
  for (fs::path& part : parts) part = card[static_cast<std::size_t>(dice(5)) - 1];
  model->join(parts);
  ++usersJoins;
}

void SoakTests::selectOne() {
  const auto all = ids();
  model->select(all.empty() || dice(4) == 1 ? std::nullopt : std::optional(anyOf(all)));
}

void SoakTests::pullOut() {
  if (const fs::path file = anyOf(card); fs::exists(file))
    fs::rename(file, aside / file.filename());
}

void SoakTests::plugIn() {
  for (const std::string& name : namesIn(aside)) fs::rename(aside / name, folder / name);
}

void SoakTests::grow() {
  if (!fs::exists(growing)) return;
  std::ofstream(growing, std::ios::app | std::ios::binary) << "more";
  prints[growing] = fingerprint(growing);
}

void SoakTests::clear() {
  model->clear();
  pending.clear();
  listed.clear();
  chosen.reset();
  usersJoins = 0;
  unwanted.clear();
  EXPECT_EQ(model->step(), 0);
  EXPECT_FALSE(model->reference());
  EXPECT_TRUE(until([this] { return namesIn(model->workDir()).empty(); }));
}

void SoakTests::doSomething() {
  static constexpr std::pair<double, void (SoakTests::*)()> habits[] = {
      {20, &SoakTests::addSome},     {8, &SoakTests::removeOne}, {8, &SoakTests::retryOne},
      {6, &SoakTests::setReference}, {10, &SoakTests::saveSome}, {4, &SoakTests::joinSome},
      {6, &SoakTests::selectOne},    {6, &SoakTests::pullOut},   {4, &SoakTests::plugIn},
      {4, &SoakTests::grow},         {1, &SoakTests::clear}};
  std::vector<double> weights;
  for (const auto& [weight, act] : habits) weights.push_back(weight);
  std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
  (this->*habits[choose(random)].second)();
  if (dice(2) == 1) QTest::qWait(dice(40));
}

void expectAllowed(const Roads& roads, const std::vector<std::string>& road) {
  for (std::size_t i = 1; i < road.size(); ++i) {
    EXPECT_TRUE(roads.at(road[i - 1]).contains(road[i]))
        << "from " << road[i - 1] << " to " << road[i];
  }
}

// What must hold at any moment.
void SoakTests::checkBooks() {
  Paths shown;
  bool working = false;
  bool savable = false;
  bool saved = false;
  const auto note = [&](const std::string& state) {
    working |= state == "checking" || state == "repairing" || state == "joining";
    savable |= state == "preview";
    saved |= state == "saved";
  };
  for (const Clip& clip : model->clips()) {
    shown.push_back(clip.url);
    note(nameOf(clip.state));
    expectAllowed(clipRoads, road[clip.id]);
    EXPECT_EQ(clip.is<Clip::Saved>(), fs::exists(model->savedFile(clip.id).value_or("")));
  }
  EXPECT_EQ(shown, listed);
  std::size_t chosenParts = 0;
  for (const Join& join : model->joins()) {
    note(nameOf(join.state));
    expectAllowed(joinRoads, road[join.id]);
    chosenParts += join.foundAutomatically ? 0 : 1;
    for (const Join& other : model->joins()) {
      const bool isOffered = join.foundAutomatically && !join.is<Join::Saved>() &&
                             !join.is<Join::Joining>() && join.id != other.id;
      EXPECT_FALSE(isOffered && other.foundAutomatically && isWithin(join.parts, other.parts))
          << join.title() << " is offered twice";
    }
    for (const Paths& parts : unwanted) {
      EXPECT_FALSE(join.foundAutomatically && isWithin(join.parts, parts))
          << join.title() << " came back";
    }
  }
  EXPECT_EQ(chosenParts, usersJoins);
  const auto all = ids();
  EXPECT_EQ(std::set<QUuid>(all.begin(), all.end()).size(), all.size());
  EXPECT_EQ(model->selection().has_value(),
            model->selectedClip() != nullptr || model->selectedJoin() != nullptr);

  EXPECT_EQ(model->isWorking(), working);
  EXPECT_EQ(model->savableIDs().empty(), !savable);
  const int step = all.empty() ? 0 : saved && !savable ? 4 : savable && !working ? 2 : 1;
  EXPECT_EQ(model->step(), step) << model->stepStatus().toStdString();
  const std::string status = model->stepStatus().toStdString();
  EXPECT_EQ(working, status.starts_with("Checking") || status.starts_with("Repairing ") ||
                         status.starts_with("Joining "))
      << status;

  EXPECT_EQ(model->referenceChosenByUser(), chosen.has_value());
  if (const auto reference = model->reference()) {
    const auto& clips = model->clips();
    EXPECT_TRUE(reference == chosen || std::any_of(clips.begin(), clips.end(),
                                                   [&](const Clip& clip) {
                                                     return clip.url == *reference &&
                                                            clip.is<Clip::Healthy>();
                                                   }))
        << *reference;
  }
}

// What must hold when nothing is under way.
void SoakTests::checkWhenSettled() {
  ASSERT_TRUE(until([this] { return pending.empty() && !model->isWorking(); }));
  checkBooks();
  for (const Clip& clip : model->clips()) {
    EXPECT_FALSE(clip.is<Clip::Truncated>() || clip.is<Clip::RawFile>()) << clip.url;
    EXPECT_FALSE(clip.is<Clip::MissingIndex>() && model->reference(clip)) << clip.url;
  }
  EXPECT_TRUE(until([this] { return namesIn(model->workDir()).size() <= ids().size(); }));
}

// Whatever was asked in the meantime: what stands there is whole.
void SoakTests::checkCopies() const {
  for (const std::string& name : namesIn(out)) {
    EXPECT_FALSE(name.starts_with('.')) << name;
    const auto kind = kindOf(out / name);
    ASSERT_TRUE(kind) << name;
    EXPECT_TRUE(std::holds_alternative<FileState::Healthy>(checkFile(out / name, *kind))) << name;
  }
}

TEST_F(SoakTests, keepTheBooksWhateverTheUserDoes) {
  const int operations = fromEnvironment("TALLOWMARK_SOAK_OPERATIONS", 150);
  const auto seed = static_cast<unsigned>(
      fromEnvironment("TALLOWMARK_SOAK_SEED", static_cast<int>(std::random_device()() >> 1U)));
  random.seed(seed);
  std::cout << "TALLOWMARK_SOAK_SEED=" << seed << "\n";
  for (int i = 1; i <= operations && !HasFailure(); ++i) {
    SCOPED_TRACE("operation " + std::to_string(i));
    doSomething();
    checkBooks();
    if (i % 10 == 0) checkWhenSettled();
  }
  plugIn();
  checkWhenSettled();
  checkCopies();
  const auto copies = namesIn(out).size();
  clear();
  for (const auto& [file, print] : prints) EXPECT_EQ(fingerprint(file), print) << file;
  model.reset();
  EXPECT_TRUE(namesIn(surroundings.scratchParent).empty());
  std::cout << operations << " operations, " << road.size() << " items, " << copies << " copies\n";
}

}  // namespace
}  // namespace tallowmark::testing

// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QString>
#include <QUuid>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "TallowmarkRepair/Model/AddedFiles.h"
#include "TallowmarkRepair/Model/ClipWork.h"
#include "TallowmarkRepair/Model/JoinWork.h"
#include "TallowmarkRepair/Model/References.h"

namespace tallowmark {

/// The list of files and recordings and what is done with them: the one thing that views look at
/// and act upon. Belongs to the main thread and never blocks it for long; the work runs beside it,
/// and every failure ends as the state of an item.
class RepairModel final : public QObject {
  Q_OBJECT
  Q_PROPERTY(int step READ step NOTIFY changed)
  Q_PROPERTY(QString stepStatus READ stepStatus NOTIFY changed)
  Q_PROPERTY(bool isWorking READ isWorking NOTIFY changed)

 public:
  /// The file and its facts.
  using ReferenceInUse = std::pair<std::filesystem::path, std::optional<ClipInfo>>;

  explicit RepairModel(Surroundings surroundings, QObject* parent = nullptr);
  /// Ends all work and waits for it; nothing half done stays behind.
  ~RepairModel() override;

  /// Every added file, in the order added, and as a list for a view. Valid until they change.
  const std::vector<Clip>& clips() const { return clips_.items(); }
  QAbstractListModel& clipList() { return clips_; }
  /// Split recordings, found or chosen.
  const std::vector<Join>& joins() const { return joins_.items(); }
  QAbstractListModel& joinList() { return joins_; }

  /// The id of the selected item.
  std::optional<QUuid> selection() const { return selection_; }
  void select(std::optional<QUuid> id);
  /// Null when no such item is selected.
  const Clip* selectedClip() const;
  const Join* selectedJoin() const;

  std::optional<std::filesystem::path> reference() const;
  std::optional<ClipInfo> referenceInfo() const;
  bool referenceChosenByUser() const { return reference_ && reference_->chosenByUser; }
  /// The scratch folder of this model.
  const std::filesystem::path& workDir() const { return scratch_.path(); }

  std::vector<Clip> brokenClips() const;
  std::vector<Clip> savableClips() const;
  std::vector<Join> savableJoins() const;
  /// Of the savable clips, then of the savable joins.
  std::vector<QUuid> savableIDs() const;
  bool isWorking() const;
  /// 0 add files, 1 repair, 2 save, 4 all done.
  int step() const;
  QString stepStatus() const;

  /// Adds files and what folders hold. Returns at once; the disk is looked at beside.
  void add(const std::vector<std::filesystem::path>& urls);
  /// Removes a clip or join from the list; its work ends. A recording that was found comes back
  /// only with a file of its that is added anew, or when recordings are looked for.
  void remove(const QUuid& id);
  void clear();
  /// Checks a failed clip again, prepares a join again.
  void retry(const QUuid& id);

  /// The reference that applies to a clip, the best where there are several.
  std::optional<std::filesystem::path> reference(const Clip& clip) const;
  /// The references that the clips of the list use, for display.
  std::vector<ReferenceInUse> referencesInUse() const;
  /// The user's choice. Repairs what needs it again. Throws MediaError::unsupported with the user's
  /// sentence and leaves all as it was.
  void setReference(const std::filesystem::path& url);
  /// Does nothing once the user chose.
  void chooseReferenceAutomatically();

  /// Starts the repair of every clip that can be repaired now.
  void repairAllPending();
  /// Saves clips and joins that are ready into a folder, under names that replace nothing.
  void save(const std::vector<QUuid>& ids, const std::filesystem::path& folder);

  /// Groups the healthy clips into the recordings that cameras split, those that were removed from
  /// the list among them.
  void findSplitRecordings();
  /// The user's own choice of parts; joined in name order.
  void join(std::vector<std::filesystem::path> urls);
  /// The join of which a file is a part; null when there is none.
  const Join* splitRecording(const std::filesystem::path& url) const;
  /// A file's place in its join, from 1, and the number of its parts.
  std::optional<std::pair<std::size_t, std::size_t>> splitPart(
      const std::filesystem::path& url) const;

  /// What can be shown of an item; absent until it is made, and where it could not be.
  std::optional<std::filesystem::path> previewFile(const QUuid& id) const;
  /// The copy of an item that was saved.
  std::optional<std::filesystem::path> savedFile(const QUuid& id) const;
  /// What the repair of a clip did; null until it is done. Valid until the clip changes.
  const RepairDetails* repairDetails(const QUuid& id) const;
  /// Of each part of a join, in playing order; empty until they are checked.
  std::vector<PartFacts> partFacts(const QUuid& id) const;
  /// What is to be said of parts of a join that are not there; empty where all is.
  QString missingPartsNote(const Join& join) const;
  /// Whether the copy of a clip is being written, rather than its preview.
  bool isSaving(const QUuid& id) const;

 signals:
  /// An add() has come to its end; so many files are new.
  void filesAdded(int count);
  /// Anything below, after it.
  void changed();
  void clipsChanged();
  void joinsChanged();
  void selectionChanged();
  void referenceChanged();

 private:
  void announceChanges();
  void append(const std::vector<AddedFile>& files);
  void check(const QUuid& id);
  void finishedChecking(const QUuid& id, const FileState::Any& found);
  void finishedAllChecks();
  void selectAfterChecking();
  void setReferenceTo(std::optional<Reference> reference);
  void repairAgainWith(Kind kind);
  bool updateKnownRecording(const std::vector<std::filesystem::path>& recording);
  void offerSplitRecordings();
  bool isUnwanted(const std::vector<std::filesystem::path>& recording) const;
  void wantAgain(const std::filesystem::path& part);
  void prepareNewJoin(std::vector<std::filesystem::path> parts, bool foundAutomatically);

  const Surroundings surroundings_;
  ItemList<Clip> clips_;
  ItemList<Join> joins_;
  std::map<QUuid, std::filesystem::path> identities_;
  // Recordings that the user removed from the list.
  std::vector<std::vector<std::filesystem::path>> unwanted_;
  std::optional<QUuid> selection_;
  std::optional<Reference> reference_;
  ScratchFolder scratch_;
  ClipWork clipWork_;
  JoinWork joinWork_;
  // The last members: their threads end before what they work for goes.
  Workers workers_;
  Workers adders_;
};

}  // namespace tallowmark

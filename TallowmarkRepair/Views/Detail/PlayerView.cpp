// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PlayerView.h"

#include <QAudioDevice>
#include <QAudioOutput>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMediaDevices>
#include <QMediaPlayer>
#include <QSlider>
#include <QStackedWidget>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/Detail/Beside.h"
#include "TallowmarkRepair/Views/Detail/Glyphs.h"
#include "TallowmarkRepair/Views/Detail/PlayerBackend.h"
#include "TallowmarkRepair/Views/Detail/PreviewMessage.h"
#include "TallowmarkRepair/Views/Detail/VideoSurface.h"

namespace tallowmark {

namespace {

using Glyphs::Glyph;

constexpr qint64 milliseconds = 1000;
constexpr qint64 shortStep = 1 * milliseconds;
constexpr int openingDelay = 120;
constexpr int fullVolume = 100;

// One click anywhere on it goes there, as in every player.
class ScrubSlider final : public QSlider {
 public:
  using QSlider::QSlider;

 protected:
  void mousePressEvent(QMouseEvent* event) override {
    if (event->button() == Qt::LeftButton && maximum() > 0) {
      setSliderPosition(QStyle::sliderValueFromPosition(
          minimum(), maximum(), static_cast<int>(event->position().x()), width(),
          layoutDirection() == Qt::RightToLeft));
    }
    QSlider::mousePressEvent(event);
  }
};

QToolButton* makeButton(const char* name, QWidget* parent) {
  auto* button = new QToolButton(parent);
  button->setObjectName(name);
  button->setAutoRaise(true);
  button->setIconSize({18, 18});
  button->setFocusPolicy(Qt::TabFocus);
  return button;
}

}  // namespace

PlayerView::PlayerView(QWidget* parent)
    : QWidget(parent),
      pages_(new QStackedWidget(this)),
      surface_(new VideoSurface(this)),
      message_(new PreviewMessage(this)),
      controls_(makeControls()) {
  pages_->addWidget(surface_);
  pages_->addWidget(message_);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(4);
  column->addWidget(pages_, 1);
  column->addWidget(controls_);
  surface_->setObjectName("videoSurface");
  connect(surface_, &VideoSurface::clicked, this, &PlayerView::togglePlay);
  opening_.setSingleShot(true);
  opening_.setInterval(openingDelay);
  connect(&opening_, &QTimer::timeout, this, [this] {
    choosePlayerBackend();
    loadingBackend_.setFuture(beside(loadPlayerBackend));
  });
  connect(&loadingBackend_, &QFutureWatcher<bool>::finished, this, &PlayerView::open);
  showIcons();
  showTime();
}

PlayerView::~PlayerView() = default;

QWidget* PlayerView::makeControls() {
  auto* bar = new QWidget(this);
  play_ = makeButton("playButton", bar);
  mute_ = makeButton("muteButton", bar);
  position_ = new ScrubSlider(Qt::Horizontal, bar);
  position_->setObjectName("positionSlider");
  position_->setAccessibleName(tr("Position"));
  position_->setSingleStep(shortStep);
  position_->setPageStep(5 * shortStep);
  time_ = new QLabel(bar);
  time_->setObjectName("timeLabel");
  volume_ = new QSlider(Qt::Horizontal, bar);
  volume_->setObjectName("volumeSlider");
  volume_->setAccessibleName(tr("Volume"));
  volume_->setRange(0, fullVolume);
  volume_->setValue(fullVolume);
  volume_->setMaximumWidth(90);
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(play_);
  row->addWidget(position_, 1);
  row->addWidget(time_);
  row->addSpacing(8);
  row->addWidget(mute_);
  row->addWidget(volume_);
  connect(play_, &QToolButton::clicked, this, &PlayerView::togglePlay);
  connect(mute_, &QToolButton::clicked, this, &PlayerView::toggleMuted);
  connect(position_, &QSlider::valueChanged, this, [this](int value) {
    if (player_) player_->setPosition(value);
  });
  connect(volume_, &QSlider::valueChanged, this, [this](int value) {
    if (audio_) audio_->setVolume(static_cast<float>(value) / fullVolume);
  });
  return bar;
}

void PlayerView::load(const std::filesystem::path& clip) {
  if (clip == clip_) {
    return;
  }
  unload();
  clip_ = clip;
  opening_.start();
}

void PlayerView::unload() {
  opening_.stop();
  loadingBackend_.setFuture({});
  clip_.clear();
  player_.reset();
  audio_.reset();
  surface_->clear();
  pages_->setCurrentWidget(surface_);
  controls_->setEnabled(false);
  showTime();
  showIcons();
}

void PlayerView::open() {
  if (clip_.empty() || loadingBackend_.isCanceled()) {
    return;
  }
  if (!loadingBackend_.result()) {
    fail();
    return;
  }
  player_ = std::make_unique<QMediaPlayer>();
  // Without a loudspeaker there is nothing to hear, but all to see.
  if (!QMediaDevices::audioOutputs().isEmpty()) {
    audio_ = std::make_unique<QAudioOutput>();
    audio_->setVolume(static_cast<float>(volume_->value()) / fullVolume);
    player_->setAudioOutput(audio_.get());
  }
  player_->setVideoSink(surface_->sink());
  connectPlayer();
  controls_->setEnabled(true);
  player_->setSource(QUrl::fromLocalFile(QString::fromStdString(clip_.string())));
  // The first picture, still.
  if (player_) player_->pause();
  showIcons();
}

void PlayerView::connectPlayer() {
  // Queued: a player must not go while it is telling something.
  connect(player_.get(), &QMediaPlayer::errorOccurred, this, &PlayerView::fail,
          Qt::QueuedConnection);
  connect(player_.get(), &QMediaPlayer::playbackStateChanged, this, &PlayerView::showIcons);
  connect(player_.get(), &QMediaPlayer::durationChanged, this, &PlayerView::showTime);
  connect(player_.get(), &QMediaPlayer::positionChanged, this, &PlayerView::showTime);
}

void PlayerView::fail() {
  player_.reset();
  audio_.reset();
  controls_->setEnabled(false);
  message_->say(tr("The preview can't be played here."), clip_);
  pages_->setCurrentWidget(message_);
}

bool PlayerView::isPlaying() const {
  return player_ && player_->playbackState() == QMediaPlayer::PlayingState;
}

bool PlayerView::hasFailed() const {
  return pages_->currentWidget() == message_;
}

void PlayerView::togglePlay() {
  if (!player_) {
    return;
  }
  if (isPlaying()) {
    player_->pause();
    return;
  }
  if (player_->mediaStatus() == QMediaPlayer::EndOfMedia) {
    player_->setPosition(0);
  }
  player_->play();
}

void PlayerView::toggleMuted() {
  if (audio_) {
    audio_->setMuted(!audio_->isMuted());
    showIcons();
  }
}

void PlayerView::seekBy(qint64 distance) {
  position_->setValue(static_cast<int>(position_->value() + distance));
}

void PlayerView::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_MediaTogglePlayPause:
      togglePlay();
      break;
    case Qt::Key_Left:
      seekBy(-shortStep);
      break;
    case Qt::Key_Right:
      seekBy(shortStep);
      break;
    case Qt::Key_Home:
      position_->setValue(0);
      break;
    case Qt::Key_End:
      position_->setValue(position_->maximum());
      break;
    case Qt::Key_Up:
      volume_->triggerAction(QSlider::SliderPageStepAdd);
      break;
    case Qt::Key_Down:
      volume_->triggerAction(QSlider::SliderPageStepSub);
      break;
    case Qt::Key_M:
      toggleMuted();
      break;
    default:
      QWidget::keyPressEvent(event);
  }
}

void PlayerView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) showIcons();
}

void PlayerView::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (isPlaying()) player_->pause();
}

void PlayerView::showTime() {
  const qint64 duration = player_ ? player_->duration() : 0;
  const qint64 position = player_ ? player_->position() : 0;
  if (!position_->isSliderDown()) {
    const QSignalBlocker still(position_);
    position_->setRange(0, static_cast<int>(duration));
    position_->setValue(static_cast<int>(position));
  }
  const auto text = [](qint64 time) {
    return ItemTexts::duration(static_cast<double>(time) / milliseconds);
  };
  time_->setText(QStringLiteral("%1 / %2").arg(text(position), text(duration)));
}

void PlayerView::showIcons() {
  const bool playing = isPlaying();
  play_->setIcon(Glyphs::icon(playing ? Glyph::pause : Glyph::play, palette()));
  play_->setAccessibleName(playing ? tr("Pause") : tr("Play"));
  play_->setToolTip(playing ? tr("Pause (Space)") : tr("Play (Space)"));
  const bool silent = !audio_ || audio_->isMuted();
  mute_->setIcon(Glyphs::icon(silent ? Glyph::muted : Glyph::sound, palette()));
  mute_->setAccessibleName(silent ? tr("Sound on") : tr("Sound off"));
  mute_->setToolTip(mute_->accessibleName() + QStringLiteral(" (M)"));
  mute_->setEnabled(audio_ != nullptr);
  volume_->setEnabled(audio_ != nullptr);
}

}  // namespace tallowmark

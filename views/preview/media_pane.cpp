#include "views/preview/media_pane.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#if defined(TROVIX_HAVE_MULTIMEDIA)
#include <QAudioOutput>
#include <QMediaPlayer>
#include <QVideoWidget>
#endif

namespace trovix::views {
namespace {

[[maybe_unused]] QString Clock(qint64 ms) {
  const qint64 s = ms / 1000;
  return QString("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QChar('0'));
}

}  // namespace

bool MediaPane::Available() {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  return true;
#else
  return false;
#endif
}

MediaPane::MediaPane(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  // Sound has no picture: its type's icon and its name stand in the video's place.
  audio_box_ = new QWidget(this);
  auto* audio_layout = new QVBoxLayout(audio_box_);
  audio_layout->addStretch(1);
  audio_icon_ = new QLabel(audio_box_);
  audio_icon_->setAlignment(Qt::AlignCenter);
  audio_layout->addWidget(audio_icon_);
  audio_label_ = new QLabel(audio_box_);
  audio_label_->setAlignment(Qt::AlignCenter);
  audio_label_->setWordWrap(true);
  audio_layout->addWidget(audio_label_);
  audio_layout->addStretch(1);
  layout->addWidget(audio_box_, 1);
#if defined(TROVIX_HAVE_MULTIMEDIA)
  video_ = new QVideoWidget(this);
  video_->setAccessibleName(tr("Video"));
  layout->addWidget(video_, 1);
  video_->hide();
  player_ = new QMediaPlayer(this);
  audio_ = new QAudioOutput(this);
  player_->setAudioOutput(audio_);
  player_->setVideoOutput(video_);
#endif
  auto* controls = new QHBoxLayout;
  play_ = new QToolButton(this);
  play_->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
  play_->setText(tr("Play"));
  play_->setAccessibleName(tr("Play"));
  play_->setToolTip(tr("Play or pause"));
  controls->addWidget(play_);
  position_ = new QSlider(Qt::Horizontal, this);
  position_->setAccessibleName(tr("Position"));
  controls->addWidget(position_, 1);
  time_ = new QLabel("0:00 / 0:00", this);
  controls->addWidget(time_);
  auto* volume_icon = new QLabel(this);
  volume_icon->setPixmap(style()->standardIcon(QStyle::SP_MediaVolume).pixmap(16, 16));
  controls->addWidget(volume_icon);
  volume_ = new QSlider(Qt::Horizontal, this);
  volume_->setRange(0, 100);
  volume_->setValue(80);
  volume_->setMaximumWidth(90);
  volume_->setAccessibleName(tr("Volume"));
  controls->addWidget(volume_);
  layout->addLayout(controls);

  connect(play_, &QToolButton::clicked, this, &MediaPane::TogglePlay);
  connect(position_, &QSlider::sliderMoved, this, [this](int ms) { Seek(ms); });
  connect(volume_, &QSlider::valueChanged, this, &MediaPane::SetVolume);
#if defined(TROVIX_HAVE_MULTIMEDIA)
  SetVolume(volume_->value());
  connect(player_, &QMediaPlayer::durationChanged, this, [this](qint64 ms) {
    position_->setRange(0, static_cast<int>(ms));
    UpdateTime();
  });
  connect(player_, &QMediaPlayer::positionChanged, this, [this](qint64 ms) {
    if (!position_->isSliderDown()) position_->setValue(static_cast<int>(ms));
    UpdateTime();
  });
  connect(player_, &QMediaPlayer::playbackStateChanged, this, [this] {
    const bool on = playing();
    play_->setIcon(style()->standardIcon(on ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    play_->setText(on ? tr("Pause") : tr("Play"));
    play_->setAccessibleName(play_->text());
  });
#endif
}

MediaPane::~MediaPane() { Release(); }

void MediaPane::Load(const QString& path, bool video) {
  audio_label_->setText(QFileInfo(path).fileName());
  const QIcon icon = QIcon::fromTheme("audio-x-generic", style()->standardIcon(QStyle::SP_MediaVolume));
  audio_icon_->setPixmap(icon.pixmap(64, 64));
  audio_box_->setVisible(!video);
  position_->setValue(0);
#if defined(TROVIX_HAVE_MULTIMEDIA)
  video_->setVisible(video);
  player_->setSource(QUrl::fromLocalFile(path));
#else
  (void)video;
#endif
  UpdateTime();
}

void MediaPane::Release() {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  if (player_) {
    player_->stop();
    player_->setSource(QUrl());
  }
#endif
}

void MediaPane::TogglePlay() {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  if (playing())
    player_->pause();
  else
    player_->play();
#endif
}

void MediaPane::Seek(qint64 ms) {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  player_->setPosition(ms);
#else
  (void)ms;
#endif
}

void MediaPane::SetVolume(int percent) {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  audio_->setVolume(static_cast<float>(percent) / 100.0f);
#else
  (void)percent;
#endif
}

bool MediaPane::playing() const {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  return player_->playbackState() == QMediaPlayer::PlayingState;
#else
  return false;
#endif
}

void MediaPane::UpdateTime() {
#if defined(TROVIX_HAVE_MULTIMEDIA)
  time_->setText(Clock(player_->position()) + " / " + Clock(player_->duration()));
#endif
}

}  // namespace trovix::views

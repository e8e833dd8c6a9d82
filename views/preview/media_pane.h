// MediaPane: the quick view's media player for the audio and video lists: a video surface,
// Play/Pause, a position slider that seeks, a volume slider and the time. Qt Multimedia with
// its FFmpeg back end (the program chooses it at start: Debian's Qt 6.4 plays MP3 and FLAC
// only with that one). Built only when Qt Multimedia is there (TROVIX_HAVE_MULTIMEDIA); the
// quick view then never offers the player.
//
// UI thread.
#pragma once

#include <QString>
#include <QWidget>

class QAudioOutput;
class QLabel;
class QMediaPlayer;
class QSlider;
class QToolButton;
class QVideoWidget;

namespace trovix::views {

class MediaPane : public QWidget {
  Q_OBJECT
 public:
  explicit MediaPane(QWidget* parent = nullptr);
  ~MediaPane() override;

  // Whether this build has a player at all.
  static bool Available();

  // Loads a file (not played until the user presses Play).
  void Load(const QString& path, bool video);
  // Stops and lets the file go.
  void Release();

  void TogglePlay();
  void Seek(qint64 ms);
  void SetVolume(int percent);
  bool playing() const;
  QToolButton* play_button() const { return play_; }
  QSlider* position_slider() const { return position_; }
  QSlider* volume_slider() const { return volume_; }

 private:
  void UpdateTime();

  QMediaPlayer* player_ = nullptr;
  QAudioOutput* audio_ = nullptr;
  QVideoWidget* video_ = nullptr;
  QWidget* audio_box_ = nullptr;
  QLabel* audio_icon_ = nullptr;
  QLabel* audio_label_ = nullptr;
  QToolButton* play_ = nullptr;
  QSlider* position_ = nullptr;
  QSlider* volume_ = nullptr;
  QLabel* time_ = nullptr;
};

}  // namespace trovix::views

#pragma once
// One deck of corvid-deck: a player with its transport, position bar (cue-in and segue points
// marked), elapsed and remaining time, left and right meters, the item's title, a dead-air
// light, and its main and PFL devices. PFL plays the item from its cue-in on the PFL device
// through a second player, so the operator hears it before it goes on air.
//
// Threads: the GUI thread, which pumps the platform's loop (LoopPump).

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"

#include <QElapsedTimer>
#include <QGroupBox>
#include <QTimer>

#include <functional>
#include <memory>

class QComboBox;
class QLabel;
class QPushButton;

namespace corvid::deck {

// The item's length with the cue-in and segue points marked, and how far it has played.
class PositionBar final : public QWidget {
public:
    explicit PositionBar(QWidget* parent = nullptr);
    void show(double position, double duration, double cueIn, double segue);

protected:
    void paintEvent(QPaintEvent*) override;

private:
    double position_ = 0, duration_ = 0, cueIn_ = 0, segue_ = 0;
};

// One channel's peak on a decibel scale: green, amber over -9 dB, red over -3 dB. It rises at
// once and falls back at a steady rate, as a programme meter does: the ticks carry the peak of
// the audio that reached the player's grabber since the last tick, which comes in bursts
// ahead of the speakers, so a tick may carry nothing while the item is loud.
class Meter final : public QWidget {
public:
    explicit Meter(const QString& channel, QWidget* parent = nullptr);
    // A peak on the 16-bit sample scale (full scale 32768).
    void setPeak(int32_t peak);
    // Down to nothing at once (stopped, paused, a new item).
    void reset();

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QString channel_;
    double dB_ = -100;
    QElapsedTimer sinceShown_;
};

class Deck final : public QGroupBox, private PlayerEvents {
public:
    Deck(const QString& name, native::NativePlatform& platform, QWidget* parent = nullptr);
    ~Deck() override;

    Player& player() { return player_; }
    // Loads a file or an address; whether it loaded (the log and LastError say why not).
    bool load(const QString& item);
    // Starts the item from its cue-in point.
    void playFromCueIn();
    bool playing();
    // Makes `name` (one of the player's devices) the main device; a stopped item is loaded
    // again on it.
    void chooseDevice(const QString& name);
    double cueIn() const { return cueIn_; }
    double segue() const { return segue_; }
    // Called once per play when the position reaches the segue point.
    std::function<void(Deck&)> onSegue;
    // Every log line of this deck's players, with the deck's name.
    std::function<void(const QString&)> onLog;

private:
    // PlayerEvents, raised on the GUI thread.
    void PlayerLogInfo(std::string& Info) override;
    void ShoutCastMeta(std::string& ArtistTitle, std::string& URL, std::string& FullMeta) override;
    void SegueFound(double& SegFromStart) override;
    void CueInFound(double& CueInCurPos) override;
    void VUPeak(int32_t& Left, int32_t& Right) override;
    void EndOfStream(int32_t Result) override;
    void PlayStateChange(int32_t OldState, int32_t NewState) override;
    void SilenceDetected(int32_t HowManySecsOfSilence) override;

    void openFile();
    void openAddress();
    void listen(bool on);
    void refresh();
    void resetMeters();
    // Arms the segue timer for the moment the position reaches the segue point.
    void armSegue();
    void segueDue();

    native::NativePlatform& platform_;
    Player player_;
    std::unique_ptr<Player> pfl_; // made on the first PFL press
    QString name_;
    double cueIn_ = 0, segue_ = 0;
    bool segueRaised_ = false;
    QTimer segueTimer_;
    QLabel* title_;
    QLabel* deadAir_;
    QLabel* elapsed_;
    QLabel* remaining_;
    PositionBar* bar_;
    Meter* left_;
    Meter* right_;
    QPushButton* pflButton_;
    QComboBox* mainDevice_;
    QComboBox* pflDevice_;
};

} // namespace corvid::deck

#include "qt/deck/Deck.h"

#include "levels/SilenceDet.h"
#include "qt/QtViews.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QPainter>
#include <QPushButton>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace corvid::deck {

namespace {

constexpr double kMeterFloorDb = -60; // the meters show the top 60 dB

QString clockText(double seconds) {
    const int tenths = static_cast<int>(std::lround(std::max(0.0, seconds) * 10));
    return QString("%1:%2.%3")
        .arg(tenths / 600)
        .arg(tenths / 10 % 60, 2, 10, QChar('0'))
        .arg(tenths % 10);
}

} // namespace

Meter::Meter(const QString& channel, QWidget* parent) : QWidget(parent), channel_(channel) {
    setMinimumSize(240, 12);
}

void Meter::setPeak(int32_t peak) {
    constexpr double kFallDbPerSecond = 20;
    const double magnitude = std::abs(static_cast<double>(peak)) / 32768.0;
    const double dB = magnitude > 0 ? 20 * std::log10(magnitude) : -100;
    const double fallen = sinceShown_.isValid() ? dB_ - kFallDbPerSecond * sinceShown_.elapsed() / 1000.0 : -100;
    dB_ = std::max(dB, fallen);
    sinceShown_.start();
    update();
}

void Meter::reset() {
    dB_ = -100;
    sinceShown_.invalidate();
    update();
}

void Meter::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect area = rect();
    painter.fillRect(area, QColor("#202428"));
    auto x = [&](double dB) {
        return static_cast<int>(area.width() * std::clamp((dB - kMeterFloorDb) / -kMeterFloorDb, 0.0, 1.0));
    };
    const int level = x(dB_);
    painter.fillRect(QRect(0, 0, std::min(level, x(-9)), area.height()), QColor("#2f9e44"));
    if (level > x(-9)) painter.fillRect(QRect(x(-9), 0, std::min(level, x(-3)) - x(-9), area.height()), QColor("#f08c00"));
    if (level > x(-3)) painter.fillRect(QRect(x(-3), 0, level - x(-3), area.height()), QColor("#e03131"));
    painter.setPen(Qt::white);
    painter.drawText(area.adjusted(4, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, channel_);
}

PositionBar::PositionBar(QWidget* parent) : QWidget(parent) { setMinimumSize(240, 22); }

void PositionBar::show(double position, double duration, double cueIn, double segue) {
    position_ = position, duration_ = duration, cueIn_ = cueIn, segue_ = segue;
    update();
}

void PositionBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect area = rect().adjusted(0, 0, -1, -1);
    painter.fillRect(area, QColor("#202428"));
    if (duration_ <= 0) return;
    auto x = [&](double seconds) { return static_cast<int>(area.width() * std::clamp(seconds / duration_, 0.0, 1.0)); };
    painter.fillRect(QRect(0, 0, x(position_), area.height()), QColor("#3b6ea5"));
    // Cue-in green, segue red: where the audio really starts, and where the next item may.
    painter.setPen(QPen(QColor("#40c057"), 2));
    painter.drawLine(x(cueIn_), 0, x(cueIn_), area.height());
    if (segue_ > 0) {
        painter.setPen(QPen(QColor("#fa5252"), 2));
        painter.drawLine(x(segue_), 0, x(segue_), area.height());
    }
}

Deck::Deck(const QString& name, native::NativePlatform& platform, QWidget* parent)
    : QGroupBox(name, parent), platform_(platform), player_(platform), name_(name),
      title_(new QLabel(tr("(nothing loaded)"))), deadAir_(new QLabel), elapsed_(new QLabel),
      remaining_(new QLabel), bar_(new PositionBar), left_(new Meter("L")), right_(new Meter("R")),
      pflButton_(new QPushButton(tr("PFL"))), mainDevice_(new QComboBox), pflDevice_(new QComboBox) {
    player_.setEvents(this);
    std::string cart = name.toStdString();
    player_.put_ThisCartName(cart);
    bool on = true, off = false;
    player_.put_LoggingEnabled(on);
    player_.put_ASFReaderBanned(off); // WMA plays through the real decoder here
    player_.UseAutoCue = true;
    player_.CanCueIn = true;
    player_.Init();
    qt::installViews(platform_, player_, this);

    for (const auto& device : player_.EnumRenders(false)) {
        mainDevice_->addItem(QString::fromStdString(device.key));
        pflDevice_->addItem(QString::fromStdString(device.key));
    }
    mainDevice_->setCurrentText(QString::fromStdString(player_.GetMainSoundcard()));
    pflDevice_->setCurrentText(QString::fromStdString(player_.GetPFLSoundcard()));

    QFont big = title_->font();
    big.setPointSizeF(big.pointSizeF() * 1.3);
    big.setBold(true);
    title_->setFont(big);
    deadAir_->setStyleSheet("background: #c92a2a; color: white; font-weight: bold; padding: 2px 6px;");
    deadAir_->hide();
    QFont mono("monospace");
    mono.setStyleHint(QFont::Monospace);
    elapsed_->setFont(mono);
    remaining_->setFont(mono);
    pflButton_->setCheckable(true);

    auto* open = new QPushButton(tr("Open file…"));
    auto* address = new QPushButton(tr("Open address…"));
    auto* play = new QPushButton(tr("Play"));
    auto* pause = new QPushButton(tr("Pause"));
    auto* stop = new QPushButton(tr("Stop"));
    connect(open, &QPushButton::clicked, this, &Deck::openFile);
    connect(address, &QPushButton::clicked, this, &Deck::openAddress);
    connect(play, &QPushButton::clicked, this, &Deck::playFromCueIn);
    connect(pause, &QPushButton::clicked, this, [this] { player_.Pause(); });
    connect(stop, &QPushButton::clicked, this, [this] { player_.StopPlaying(); });
    connect(pflButton_, &QPushButton::toggled, this, &Deck::listen);
    connect(mainDevice_, &QComboBox::activated, this, [this] { chooseDevice(mainDevice_->currentText()); });

    auto* grid = new QGridLayout(this);
    auto* titleRow = new QHBoxLayout;
    titleRow->addWidget(title_, 1);
    titleRow->addWidget(deadAir_);
    grid->addLayout(titleRow, 0, 0, 1, 6);
    grid->addWidget(bar_, 1, 0, 1, 6);
    grid->addWidget(elapsed_, 2, 0);
    grid->addWidget(remaining_, 2, 5, Qt::AlignRight);
    grid->addWidget(left_, 3, 0, 1, 6);
    grid->addWidget(right_, 4, 0, 1, 6);
    grid->addWidget(open, 5, 0, 1, 3);
    grid->addWidget(address, 5, 3, 1, 3);
    grid->addWidget(play, 6, 0, 1, 2);
    grid->addWidget(pause, 6, 2, 1, 2);
    grid->addWidget(stop, 6, 4, 1, 2);
    grid->addWidget(new QLabel(tr("Main")), 7, 0);
    grid->addWidget(mainDevice_, 7, 1, 1, 5);
    grid->addWidget(pflButton_, 8, 0);
    grid->addWidget(pflDevice_, 8, 1, 1, 5);

    segueTimer_.setSingleShot(true);
    segueTimer_.setTimerType(Qt::PreciseTimer);
    connect(&segueTimer_, &QTimer::timeout, this, &Deck::segueDue);
    refresh();
}

Deck::~Deck() {
    // The players may still raise events while they unload; nobody listens any more.
    player_.setEvents(nullptr);
}

bool Deck::load(const QString& item) {
    cueIn_ = segue_ = 0;
    segueRaised_ = false;
    deadAir_->hide();
    resetMeters();
    std::string name = item.toStdString();
    player_.put_FileName(name);
    const bool loaded = !player_.get_FileName().empty();
    if (loaded) {
        player_.AutoSegSearch(); // runs after the cue-in search that the load started
        const std::string artist = player_.get_WMAArtist(), title = player_.get_WMATitle();
        QString shown = QString::fromStdString(title.empty() ? std::string() : artist.empty() ? title : artist + " - " + title);
        title_->setText(shown.isEmpty() ? QFileInfo(item).fileName() : shown);
    } else {
        title_->setText(tr("(not loaded: %1)").arg(QString::fromStdString(player_.get_LastError())));
    }
    refresh();
    return loaded;
}

void Deck::playFromCueIn() {
    if (player_.get_FileName().empty() || playing()) return;
    // A stopped item already stands at its cue-in (moved there when it was found), so the
    // play starts at once; a paused one goes on where it was.
    if (player_.get_Playstate() == mpstopped && std::fabs(player_.get_GraphPosition() - cueIn_) > 0.001) {
        double at = cueIn_;
        player_.put_CurrentPosition(at);
    }
    player_.Play();
}

bool Deck::playing() { return player_.get_Playstate() == MpPlaying; }

void Deck::PlayerLogInfo(std::string& Info) {
    if (onLog) onLog(name_ + ": " + QString::fromStdString(Info));
}

void Deck::ShoutCastMeta(std::string& ArtistTitle, std::string&, std::string&) {
    title_->setText(QString::fromStdString(ArtistTitle));
}

void Deck::CueInFound(double& CueInCurPos) {
    cueIn_ = CueInCurPos;
    if (player_.get_Playstate() == mpstopped && player_.get_GraphPosition() < cueIn_) {
        double at = cueIn_;
        player_.put_CurrentPosition(at);
    }
    refresh();
}

void Deck::SegueFound(double& SegFromStart) {
    segue_ = SegFromStart;
    armSegue();
    refresh();
}

void Deck::VUPeak(int32_t& Left, int32_t& Right) {
    left_->setPeak(Left);
    right_->setPeak(Right);
    if (deadAir_->isVisible() && std::max(std::abs(Left), std::abs(Right)) > player_.get_SilenceDet().intValueSilence())
        deadAir_->hide();
    refresh();
}

void Deck::EndOfStream(int32_t) {
    player_.StopPlaying();
}

void Deck::PlayStateChange(int32_t OldState, int32_t NewState) {
    if (NewState == MpPlaying && OldState == mpstopped) segueRaised_ = false;
    if (NewState != MpPlaying) {
        resetMeters();
        deadAir_->hide();
    }
    armSegue();
    refresh();
}

void Deck::SilenceDetected(int32_t HowManySecsOfSilence) {
    deadAir_->setText(tr("DEAD AIR %1 s").arg(HowManySecsOfSilence));
    deadAir_->show();
}

void Deck::openFile() {
    const QString file = QFileDialog::getOpenFileName(this, tr("Open an item"), QString(),
        tr("Audio (*.mp3 *.wav *.wma *.ogg *.flac *.m4a *.mp4);;All files (*)"));
    if (!file.isEmpty()) load(file);
}

void Deck::openAddress() {
    bool ok = false;
    const QString address = QInputDialog::getText(this, tr("Open an address"),
        tr("Stream address (icystream://host:port/mount):"), QLineEdit::Normal, QString(), &ok);
    if (ok && !address.trimmed().isEmpty()) load(address.trimmed());
}

void Deck::chooseDevice(const QString& name) {
    std::string device = name.toStdString();
    if (device == player_.GetMainSoundcard()) return;
    // The player takes a new device only while it holds no item: a stopped item is unloaded
    // and loaded again on the new device; a playing one is refused with the player's message.
    const QString item = QString::fromStdString(player_.get_FileName());
    if (!item.isEmpty() && !playing()) {
        std::string none;
        player_.put_FileName(none);
    }
    player_.SetSoundcard(device);
    mainDevice_->setCurrentText(QString::fromStdString(player_.GetMainSoundcard()));
    if (!item.isEmpty() && player_.get_FileName().empty()) load(item);
}

void Deck::listen(bool on) {
    if (!on) {
        if (pfl_) pfl_->StopPlaying();
        return;
    }
    std::string item = player_.get_FileName();
    if (item.empty()) {
        pflButton_->setChecked(false);
        return;
    }
    if (!pfl_) {
        pfl_ = std::make_unique<Player>(platform_);
        pfl_->Init();
        qt::installViews(platform_, *pfl_, this);
    }
    std::string device = pflDevice_->currentText().toStdString();
    if (pfl_->GetMainSoundcard() != device) {
        std::string none;
        pfl_->put_FileName(none);
        pfl_->SetSoundcard(device);
    }
    if (pfl_->get_FileName() != item) pfl_->put_FileName(item);
    double at = cueIn_;
    pfl_->put_CurrentPosition(at);
    pfl_->Play();
}

void Deck::refresh() {
    const double position = player_.get_GraphPosition(), duration = player_.get_Duration();
    bar_->show(position, duration, cueIn_, segue_);
    elapsed_->setText(clockText(position));
    remaining_->setText("-" + clockText(duration - position));
}

void Deck::resetMeters() {
    left_->reset();
    right_->reset();
}

void Deck::armSegue() {
    segueTimer_.stop();
    if (segue_ <= 0 || segueRaised_ || !playing()) return;
    const double rate = player_.get_Rate() > 0 ? player_.get_Rate() : 1.0;
    const double due = (segue_ - player_.get_GraphPosition()) / rate;
    segueTimer_.start(std::max(0, static_cast<int>(std::lround(due * 1000))));
}

void Deck::segueDue() {
    if (segueRaised_ || !playing()) return;
    const double early = segue_ - player_.get_GraphPosition();
    if (early > 0.001) {
        // The device started late or was held up: wait for the rest, never less than a few
        // milliseconds, so that a stalled position cannot spin the GUI thread.
        segueTimer_.start(std::max(3, static_cast<int>(std::lround(early * 1000))));
        return;
    }
    segueRaised_ = true;
    if (onSegue) onSegue(*this);
}

} // namespace corvid::deck

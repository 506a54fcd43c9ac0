// corvid-deck end to end: two made items on a private PulseAudio null sink, deck A played,
// deck B started by the automatic segue; what reached the sink is recorded from its monitor.
// Writes a screenshot of the window to the test artifacts.

#include "../native/NativeTestSupport.h"
#include "qt/LoopPump.h"
#include "qt/deck/DeckWindow.h"

#include <QtTest>

using namespace corvid;
using namespace corvid::native::test;

namespace {

// Makes a stereo item: `leadIn` seconds of quiet, `seconds` of a tone on one channel only (so
// that the recording tells the two decks apart) at half of full scale, then `tail` seconds of
// quiet.
QString makeItem(const QString& name, int channel, double leadIn, int frequency, double seconds, double tail) {
    const QString path = QString::fromStdString(workDir()) + "/media/" + name;
    const QString pan = channel == 0 ? "c0=c0|c1=0*c0" : "c0=0*c0|c1=c0";
    const QString command = QString("ffmpeg -hide_banner -loglevel error -y -f lavfi -i "
        "'sine=frequency=%1:sample_rate=48000:duration=%2,volume=4,pan=stereo|%3,"
        "adelay=%4:all=1,apad=pad_dur=%5' %6")
        .arg(frequency).arg(seconds).arg(pan).arg(leadIn * 1000).arg(tail).arg(path);
    return runCommand(command.toStdString()) == 0 ? path : QString();
}

// Where a channel first passes half the tone's level, in seconds (-1: never).
double onset(const std::vector<float>& samples, int channel) {
    for (size_t i = size_t(channel); i < samples.size(); i += 2)
        if (std::fabs(samples[i]) > 0.25f) return double(i / 2) / MonitorRecorder::kRate;
    return -1;
}

} // namespace

class DeckTest : public QObject {
    Q_OBJECT
private slots:
    void automaticSegueStartsTheOtherDeckOnTime();
};

void DeckTest::automaticSegueStartsTheOtherDeckOnTime() {
    if (runCommand(std::string("pactl list short sinks | grep -q ") + kSinkA, 5) != 0)
        QSKIP("the private sound server does not run");
    // A: 1.5 s of 440 Hz, then quiet (its segue point). B: quiet, then 880 Hz from 0.5 s (its cue-in).
    const QString itemA = makeItem("deck-a.wav", 0, 0, 440, 1.5, 1.5);
    const QString itemB = makeItem("deck-b.wav", 1, 0.5, 880, 1.5, 0);
    QVERIFY(!itemA.isEmpty() && !itemB.isEmpty());

    native::NativeOptions options;
    options.output = native::OutputBackend::PulseAudio;
    options.settings = std::make_shared<native::MemorySettingsStore>();
    native::NativePlatform platform(options);
    qt::LoopPump pump(platform.eventLoop());
    deck::DeckWindow window(platform);
    window.resize(900, 560);
    window.show();
    deck::Deck& a = window.deckA();
    deck::Deck& b = window.deckB();
    for (auto [deck, item] : {std::pair{&a, itemA}, std::pair{&b, itemB}}) {
        deck->chooseDevice(kSinkADescription);
        QVERIFY(deck->load(item));
    }
    QTRY_VERIFY_WITH_TIMEOUT(a.segue() > 1.3 && b.cueIn() > 0.4, 10000);

    MonitorRecorder recorder(kSinkA, 2, 15);
    a.playFromCueIn();
    QTRY_VERIFY_WITH_TIMEOUT(b.playing(), 6000);
    QTest::qWait(700);
    const QString artifacts = CORVID_ARTIFACT_DIR;
    QVERIFY(QDir().mkpath(artifacts));
    QVERIFY(window.grab().save(artifacts + "/corvid-deck.png"));
    QTRY_VERIFY_WITH_TIMEOUT(!b.playing(), 4000);
    const std::vector<float> samples = recorder.stop();

    // A on the left, B on the right: B must sound where A's segue point falls in A's playing.
    const double aHeard = onset(samples, 0), bHeard = onset(samples, 1);
    QVERIFY(aHeard >= 0 && bHeard > aHeard);
    const double segueHeard = aHeard + (a.segue() - a.cueIn());
    qInfo("segue point heard at %.3f s, deck B heard at %.3f s", segueHeard, bHeard);
    QVERIFY(std::fabs(bHeard - segueHeard) <= 0.050);
    QVERIFY(std::fabs(measureTone(samples, 2, 0, MonitorRecorder::kRate).frequency - 440) < 20);
    QVERIFY(std::fabs(measureTone(samples, 2, 1, MonitorRecorder::kRate).frequency - 880) < 20);
}

QTEST_MAIN(DeckTest)
#include "DeckTest.moc"

// The Qt faces of the player under a private X server: the silence settings dialog over its
// model, and message boxes that leave a playing player alone.

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"
#include "levels/SilenceDet.h"
#include "qt/LoopPump.h"
#include "qt/QtViews.h"
#include "support/PlayerSettings.h"

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

using namespace corvid;

namespace {

std::shared_ptr<native::MemorySettingsStore> storeHolding(const std::string& silenceData) {
    auto store = std::make_shared<native::MemorySettingsStore>();
    store->write(settings::ComponentApp, settings::SilenceSection, settings::SilenceKey, silenceData);
    return store;
}

native::NativeOptions silentOptions(std::shared_ptr<platform::SettingsStore> store) {
    native::NativeOptions options;
    options.output = native::OutputBackend::Silent;
    options.settings = std::move(store);
    options.echoOperatorToStderr = false;
    return options;
}

QList<QMessageBox*> openBoxes() {
    QList<QMessageBox*> boxes;
    for (QWidget* window : QApplication::topLevelWidgets())
        if (auto* box = qobject_cast<QMessageBox*>(window); box && box->isVisible()) boxes << box;
    return boxes;
}

} // namespace

class ViewsTest : public QObject {
    Q_OBJECT
private slots:
    void dialogEditsTheSharedSettings_data();
    void dialogEditsTheSharedSettings();
    void messageBoxLeavesThePlayerPlaying();
};

void ViewsTest::dialogEditsTheSharedSettings_data() {
    QTest::addColumn<QString>("dB");      // typed into the dB box ("" types nothing)
    QTest::addColumn<QString>("seconds"); // typed into the seconds box
    QTest::addColumn<bool>("untick");
    QTest::addColumn<bool>("ok");         // OK, else Cancel
    QTest::addColumn<int>("storedDb");
    QTest::addColumn<int>("storedSeconds");
    QTest::addColumn<bool>("storedEnabled");
    QTest::addColumn<QString>("saved");   // the stored text afterwards
    const QString untouched = "-40,30,-1";
    QTest::newRow("cancel_keeps_all") << "" << "" << false << false << -40 << 30 << true << untouched;
    QTest::newRow("ok_saves_as_shown") << "" << "" << false << true << -40 << 30 << true << "-40,30,True";
    QTest::newRow("not_a_number_is_25") << "abc" << "" << false << true << -25 << 30 << true << "-25,30,True";
    QTest::newRow("typed_sign_ignored") << "-12" << "5" << false << true << -12 << 5 << true << "-12,5,True";
    QTest::newRow("zero_seconds_is_30") << "" << "0" << false << true << -40 << 30 << true << "-40,30,True";
    QTest::newRow("deeper_than_50_is_50") << "70" << "" << false << true << -50 << 30 << true << "-50,30,True";
    QTest::newRow("untick_ok_saves_off") << "" << "" << true << true << -40 << 30 << false << "-40,30,False";
    QTest::newRow("untick_cancel_undone") << "" << "" << true << false << -40 << 30 << true << untouched;
    // 0 dB is no silence level: refused, nothing saved, the dialog stays open.
    QTest::newRow("zero_db_refused") << "0" << "" << false << true << -40 << 30 << true << untouched;
}

void ViewsTest::dialogEditsTheSharedSettings() {
    QFETCH(QString, dB);
    QFETCH(QString, seconds);
    QFETCH(bool, untick);
    QFETCH(bool, ok);
    auto store = storeHolding("-40,30,-1");
    native::NativePlatform platform(silentOptions(store));
    Player player(platform);
    QWidget owner;
    qt::installViews(platform, player, &owner);

    player.SilenceDetShowUI(nullptr, "notes");
    auto* dialog = owner.findChild<qt::SilenceDialog*>();
    QVERIFY(dialog && dialog->isVisible());
    QCOMPARE(dialog->windowTitle(), QString(dlgSilence::Title));
    QCOMPARE(dialog->dBBox()->text(), "40");
    QCOMPARE(dialog->secondsBox()->text(), "30");
    QVERIFY(dialog->enableBox()->isChecked() && dialog->dBBox()->isEnabled());

    for (auto [box, text] : {std::pair{dialog->dBBox(), dB}, std::pair{dialog->secondsBox(), seconds}}) {
        if (text.isEmpty()) continue;
        box->selectAll();
        QTest::keyClicks(box, text);
    }
    if (untick) {
        dialog->enableBox()->click();
        QVERIFY(!dialog->dBBox()->isEnabled() && !dialog->secondsBox()->isEnabled());
    }
    const auto button = ok ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel;
    dialog->findChild<QDialogButtonBox*>()->button(button)->click();

    QCOMPARE(dialog->isVisible(), dB == "0");
    QCOMPARE(dialog->refusal().isEmpty(), dB != "0");
    clsSilenceDet& detector = player.get_SilenceDet();
    QTEST(detector.get_SilenceDetdBDownIsSilence(), "storedDb");
    QTEST(detector.get_SilenceDetSecs(), "storedSeconds");
    QTEST(detector.get_SilenceDetectorEnabled(), "storedEnabled");
    QTEST(QString::fromStdString(store->read(settings::ComponentApp, settings::SilenceSection,
                                             settings::SilenceKey, "")), "saved");
}

void ViewsTest::messageBoxLeavesThePlayerPlaying() {
    QTemporaryDir dir;
    const QString item = dir.filePath("tone.wav");
    QCOMPARE(QProcess::execute("ffmpeg", {"-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                                          "sine=frequency=440:duration=6", "-ac", "2", item}), 0);
    native::NativePlatform platform(silentOptions(std::make_shared<native::MemorySettingsStore>()));
    qt::LoopPump pump(platform.eventLoop());
    Player player(platform);
    QWidget owner;
    qt::installViews(platform, player, &owner);
    std::string cart = "Deck A", name = item.toStdString();
    player.put_ThisCartName(cart);
    player.put_FileName(name);
    player.Play();
    QTRY_VERIFY_WITH_TIMEOUT(player.get_CurrentPosition() > 0.2, 5000);

    // Twice: the same box is raised again rather than stacked.
    player.TestOpen("/nonexistent/item.mp3");
    player.TestOpen("/nonexistent/item.mp3");
    const auto boxes = openBoxes();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes[0]->text(), "/nonexistent/item.mp3Cant Open! ");
    QCOMPARE(boxes[0]->windowTitle(), "Deck A");

    // Nobody clicks it away, and the item goes on playing.
    const double shownAt = player.get_CurrentPosition();
    QTRY_VERIFY_WITH_TIMEOUT(player.get_CurrentPosition() > shownAt + 0.5, 3000);
    QCOMPARE(player.get_Playstate(), MpPlaying);
    QVERIFY(boxes[0]->isVisible());
    boxes[0]->button(QMessageBox::Ok)->click();
    QTRY_VERIFY_WITH_TIMEOUT(openBoxes().isEmpty(), 2000);
    player.StopPlaying();
}

QTEST_MAIN(ViewsTest)
#include "ViewsTest.moc"

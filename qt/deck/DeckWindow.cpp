#include "qt/deck/DeckWindow.h"

#include <QAction>
#include <QDockWidget>
#include <QHBoxLayout>
#include <QMenuBar>
#include <QPlainTextEdit>

namespace corvid::deck {

DeckWindow::DeckWindow(native::NativePlatform& platform, QWidget* parent)
    : QMainWindow(parent), a_(new Deck(tr("Deck A"), platform)), b_(new Deck(tr("Deck B"), platform)),
      log_(new QPlainTextEdit) {
    setWindowTitle(tr("corvid-deck"));
    auto* decks = new QWidget;
    auto* row = new QHBoxLayout(decks);
    row->addWidget(a_);
    row->addWidget(b_);
    setCentralWidget(decks);

    log_->setReadOnly(true);
    log_->setMaximumBlockCount(5000); // a day on air must not grow the pane without end
    auto* logPane = new QDockWidget(tr("Log"));
    logPane->setObjectName("log");
    logPane->setWidget(log_);
    addDockWidget(Qt::BottomDockWidgetArea, logPane);
    for (Deck* deck : {a_, b_}) {
        deck->onLog = [this](const QString& line) { log_->appendPlainText(line); };
        deck->onSegue = [this](Deck& from) { segue(from); };
    }

    QMenu* settings = menuBar()->addMenu(tr("&Settings"));
    settings->addAction(tr("&Silence detection…"), this, [this] {
        a_->player().SilenceDetShowUI(this, "The same settings serve both decks.");
    });
    QAction* automatic = settings->addAction(tr("&Automatic segue"));
    automatic->setCheckable(true);
    automatic->setChecked(autoSegue_);
    connect(automatic, &QAction::toggled, this, [this](bool on) { autoSegue_ = on; });
    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(logPane->toggleViewAction());
}

void DeckWindow::segue(Deck& from) {
    Deck& next = &from == a_ ? *b_ : *a_;
    if (autoSegue_ && !next.playing()) next.playFromCueIn();
}

} // namespace corvid::deck

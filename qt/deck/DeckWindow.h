#pragma once
// corvid-deck's window: two decks side by side, automatic segue between them, the silence
// settings dialog from the menu, and the log of every player in a pane that can be hidden.

#include "qt/deck/Deck.h"

#include <QMainWindow>

class QPlainTextEdit;

namespace corvid::deck {

class DeckWindow final : public QMainWindow {
public:
    explicit DeckWindow(native::NativePlatform& platform, QWidget* parent = nullptr);

    Deck& deckA() { return *a_; }
    Deck& deckB() { return *b_; }
    QPlainTextEdit& log() { return *log_; }

private:
    // The playing deck reached its segue point: the other one starts at its cue-in.
    void segue(Deck& from);

    Deck* a_;
    Deck* b_;
    QPlainTextEdit* log_;
    bool autoSegue_ = true;
};

} // namespace corvid::deck

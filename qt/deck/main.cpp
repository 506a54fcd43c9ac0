// corvid-deck: two playout decks with automatic segue, on the native runtime.
//
//   corvid-deck [ITEM_A [ITEM_B]]     each a file or an address, loaded into deck A and B

#include "qt/LoopPump.h"
#include "qt/deck/DeckWindow.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    corvid::native::NativePlatform platform;
    corvid::qt::LoopPump pump(platform.eventLoop());
    corvid::deck::DeckWindow window(platform);
    const QStringList items = app.arguments().mid(1);
    if (items.size() > 0) window.deckA().load(items[0]);
    if (items.size() > 1) window.deckB().load(items[1]);
    window.resize(900, 560);
    window.show();
    return app.exec();
}

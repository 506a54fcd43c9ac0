#pragma once
// The Qt faces of a player for hosts that are Qt applications: the silence settings dialog as
// a QDialog over its model, and the operator's message boxes as Qt message boxes.
//
//     corvid::qt::installViews(platform, player, &mainWindow);
//
// Neither ever blocks the caller: the dialog is modal to the operator (window-modal over its
// owner) but SilenceDetShowUI returns at once, and a message box is a non-modal window that
// stays until clicked away while the player goes on. On air, the next item must not wait for
// a box nobody has seen yet.
//
// Threads: the GUI thread, which must also be the player's control thread.

#include "levels/SilenceDialog.h"
#include "platform/Services.h"

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QWidget;

namespace corvid {
class Player;
namespace native { class NativePlatform; }
}

namespace corvid::qt {

// Shows `player`'s silence settings dialog (over the widget passed to SilenceDetShowUI as its
// owner, or else `owner`) and every message box of `platform` (over `owner`) as Qt windows.
// Message boxes still go to the log sink and stderr as well.
void installViews(native::NativePlatform& platform, Player& player, QWidget* owner = nullptr);

// The silence settings dialog over a copy of the model (the model names the shared detector,
// which lives as long as the platform). OK applies and saves through the model, with its
// checks; a refused entry (0 dB) leaves the dialog open with the model's reason shown. Cancel
// undoes a click on the check box and saves nothing.
class SilenceDialog final : public QDialog {
    Q_OBJECT
public:
    SilenceDialog(const dlgSilence& model, QWidget* parent = nullptr);

    QLineEdit* dBBox() const { return dB_; }
    QLineEdit* secondsBox() const { return seconds_; }
    QCheckBox* enableBox() const { return enable_; }
    // The model's reason when OK was refused; empty otherwise.
    QString refusal() const;

    void accept() override;
    void reject() override;

private:
    void showModel();

    dlgSilence model_;
    int checkedAtOpen_;
    QLineEdit* dB_;
    QLineEdit* seconds_;
    QCheckBox* enable_;
    QLabel* refusal_;
};

// Shows one message box without waiting for it; a box of the same title and text that is
// still open is raised instead of stacking another.
void showMessageBox(QWidget* owner, const std::string& text, const std::string& title,
                    platform::MessageIcon icon);

} // namespace corvid::qt

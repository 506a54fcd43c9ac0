#include "qt/QtViews.h"

#include <corvid/Player.h>
#include "platform/native/NativePlatform.h"
#include <corvid/AutomationError.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace corvid::qt {

namespace {

QString q(const std::string& text) { return QString::fromStdString(text); }

QFrame* line() {
    auto* frame = new QFrame;
    frame->setFrameShape(QFrame::HLine);
    frame->setFrameShadow(QFrame::Sunken);
    return frame;
}

// One text box between its two labels, as the dialog reads: "Eject After [30] seconds of silence".
QHBoxLayout* labelled(const char* before, QLineEdit* box, const char* after) {
    auto* row = new QHBoxLayout;
    row->addWidget(new QLabel(before));
    box->setMaximumWidth(60);
    row->addWidget(box);
    row->addWidget(new QLabel(after));
    row->addStretch();
    return row;
}

QMessageBox::Icon qtIcon(platform::MessageIcon icon) {
    switch (icon) {
    case platform::MessageIcon::Critical: return QMessageBox::Critical;
    case platform::MessageIcon::Exclamation: return QMessageBox::Warning;
    case platform::MessageIcon::Information: return QMessageBox::Information;
    case platform::MessageIcon::None: break;
    }
    return QMessageBox::NoIcon;
}

} // namespace

SilenceDialog::SilenceDialog(const dlgSilence& model, QWidget* parent)
    : QDialog(parent), model_(model), checkedAtOpen_(model.get_chkEnable()),
      dB_(new QLineEdit), seconds_(new QLineEdit), enable_(new QCheckBox(dlgSilence::ChkEnableText)),
      refusal_(new QLabel) {
    setWindowTitle(dlgSilence::Title);
    QFont font = this->font();
    font.setFamilies({dlgSilence::FontName, font.family()});
    setFont(font);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(labelled(dlgSilence::Label3Text, dB_, dlgSilence::Label4Text));
    layout->addLayout(labelled(dlgSilence::Label1Text, seconds_, dlgSilence::Label2Text));
    layout->addWidget(enable_);
    layout->addWidget(line());
    auto* notes = new QLabel(q(model_.lblNotes()));
    notes->setWordWrap(true);
    layout->addWidget(notes);
    layout->addWidget(line());
    refusal_->setStyleSheet("color: #b00000");
    refusal_->hide();
    layout->addWidget(refusal_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(dlgSilence::OKButtonText);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    // The typing goes to the model as it happens; a click on the box is the model's click,
    // which switches detection at once and greys the text boxes.
    connect(dB_, &QLineEdit::textEdited, this, [this](const QString& text) { model_.put_txtdB(text.toStdString()); });
    connect(seconds_, &QLineEdit::textEdited, this,
            [this](const QString& text) { model_.put_txtSecs(text.toStdString()); });
    connect(enable_, &QCheckBox::clicked, this, [this](bool checked) {
        model_.put_chkEnable(checked ? 1 : 0);
        showModel();
    });
    showModel();
}

QString SilenceDialog::refusal() const { return refusal_->isVisible() ? refusal_->text() : QString(); }

void SilenceDialog::showModel() {
    dB_->setText(q(model_.txtdB()));
    dB_->setEnabled(model_.txtdBEnabled());
    seconds_->setText(q(model_.txtSecs()));
    seconds_->setEnabled(model_.txtSecsEnabled());
    enable_->setChecked(model_.get_chkEnable() == 1);
}

void SilenceDialog::accept() {
    try {
        model_.OKButton_Click();
    } catch (const AutomationError& error) {
        // 0 dB is no silence level: the model refuses it, saves nothing and stays open.
        showModel();
        refusal_->setText(q(error.description()));
        refusal_->show();
        return;
    }
    showModel();
    if (model_.closed()) QDialog::accept();
}

void SilenceDialog::reject() {
    // The check box switched detection at once; leaving without OK puts it back.
    if (model_.get_chkEnable() != checkedAtOpen_) model_.put_chkEnable(checkedAtOpen_);
    QDialog::reject();
}

void showMessageBox(QWidget* owner, const std::string& text, const std::string& title,
                    platform::MessageIcon icon) {
    // A failure repeated item after item would otherwise pile up boxes over the deck.
    for (QWidget* window : QApplication::topLevelWidgets()) {
        auto* open = qobject_cast<QMessageBox*>(window);
        if (open && open->isVisible() && open->windowTitle() == q(title) && open->text() == q(text)) {
            open->raise();
            return;
        }
    }
    auto* box = new QMessageBox(qtIcon(icon), q(title), q(text), QMessageBox::Ok, owner);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::NonModal);
    box->show();
}

void installViews(native::NativePlatform& platform, Player& player, QWidget* owner) {
    QPointer<QWidget> fallback(owner);
    player.setSilenceDialogPresenter([fallback](dlgSilence& model, void* ownerForm) {
        // One dialog at a time: the settings are one record for the whole process.
        static QPointer<SilenceDialog> shown;
        if (shown && shown->isVisible()) {
            shown->raise();
            shown->activateWindow();
            return;
        }
        auto* parent = ownerForm ? static_cast<QWidget*>(ownerForm) : fallback.data();
        shown = new SilenceDialog(model, parent);
        shown->setAttribute(Qt::WA_DeleteOnClose);
        shown->open();
    });
    platform.operatorReports().setMessageBoxView(
        [fallback](const std::string& text, const std::string& title, platform::MessageIcon icon) {
            showMessageBox(fallback.data(), text, title, icon);
        });
}

} // namespace corvid::qt

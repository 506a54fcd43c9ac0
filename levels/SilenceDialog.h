#pragma once
// dlgSilence: the silence settings dialog as a model that any toolkit can show. It holds
// the texts, the two text-box strings with their enabled state and the check box value; a
// view copies them into its widgets after every call and forwards the user's typing, the
// check-box click and the OK button. The settings are one record for the whole process,
// which the title says.
//
// Layout: "Consider everything below" [txtdB] "dB as silence"
//         "Eject After" [txtSecs] "seconds of silence"
//         [x] "&Enable Silence Detection"
//         the notes, a line, OK.
//
// Threads: control thread only (the dialog is modal over the host's window).

#include "levels/SilenceDet.h"

#include <string>

namespace corvid {

class dlgSilence {
public:
    static constexpr const char* Title = "Silence Detection for ALL players in this project";
    static constexpr const char* Label3Text = "Consider everything below";
    static constexpr const char* Label4Text = "dB as silence";
    static constexpr const char* Label1Text = "Eject After";
    static constexpr const char* Label2Text = "seconds of silence";
    // The letter after '&' is the keyboard accelerator.
    static constexpr const char* ChkEnableText = "&Enable Silence Detection";
    static constexpr const char* OKButtonText = "OK";
    static constexpr const char* FontName = "Segoe UI";

    // Takes the detector to edit (it must outlive the dialog), sets the notes and fills the
    // controls; the view then shows the dialog modally. Nothing is saved before OK.
    void Show(clsSilenceDet& detector, const std::string& notes = {});

    // Copies the detector's values into the controls: the dB and seconds as positive
    // numbers, the text boxes enabled only while detection is on, the check box 1 or 0.
    void Fill();

    const std::string& lblNotes() const { return notes_; }

    const std::string& txtdB() const { return txtdB_; }
    void put_txtdB(const std::string& text) { txtdB_ = text; }
    bool txtdBEnabled() const { return txtdBEnabled_; }

    const std::string& txtSecs() const { return txtSecs_; }
    void put_txtSecs(const std::string& text) { txtSecs_ = text; }
    bool txtSecsEnabled() const { return txtSecsEnabled_; }

    // The check box: 1 checked, 0 unchecked. Changing the value is a click: outside Fill it
    // switches detection on or off at once (greying the text boxes); the change is saved
    // only by OK.
    int get_chkEnable() const { return chkEnable_; }
    void put_chkEnable(int value);

    // Corrects the entries (a non-number in dB becomes "25", in seconds "30"; both become
    // their absolute values), applies them to the detector, saves and closes. 0 dB raises
    // the "Overflow" AutomationError from the level write: the rest is skipped, nothing is
    // saved and the dialog stays open.
    void OKButton_Click();

    bool closed() const { return closed_; }
    bool filling() const { return filling_; }

private:
    void chkEnable_Click();

    clsSilenceDet* detector_ = nullptr;
    std::string notes_;
    std::string txtdB_;
    std::string txtSecs_;
    bool txtdBEnabled_ = true;
    bool txtSecsEnabled_ = true;
    int chkEnable_ = 0;
    bool filling_ = false;
    bool closed_ = false;
};

} // namespace corvid

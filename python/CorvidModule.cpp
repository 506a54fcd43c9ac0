// The Python binding: the Player with every property and method by its name (a property X is
// the attribute X; a write that the player adjusts reads back adjusted), events as Python
// callbacks registered by name, the platforms and their event loop.
//
// Threads: everything runs on the thread that made the platform, holding the interpreter's
// lock, except the blocking pumps, which let go of it while they wait.

#include <corvid/MemberIds.h>
#include <corvid/Player.h>

#include <corvid/NativePlatform.h>
#include <corvid/SimPlatform.h>
#include <corvid/Tags.h>

#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace py = pybind11;
using corvid::Player;

namespace {

// Calls the callbacks registered by event name. A callback's exception is reported as
// unraisable and goes no further: it must not unwind through the player.
class PythonEvents final : public corvid::PlayerEvents {
public:
    void on(const std::string& name, py::object callback) {
        bool known = false;
        for (const auto& e : corvid::ids::events) known = known || e.name == name;
        if (!known) throw py::value_error("Corvid has no event named " + name);
        if (callback.is_none()) handlers_.erase(name);
        else handlers_[name] = std::move(callback);
    }

    void PlayerLogInfo(std::string& info) override { call("PlayerLogInfo", info); }
    void StreamBufferingStarted() override { call("StreamBufferingStarted"); }
    void StreamBufferingFinished() override { call("StreamBufferingFinished"); }
    void RenderedAutomatically(std::string& path) override { call("RenderedAutomatically", path); }
    void PlayAboutToHappen() override { call("PlayAboutToHappen"); }
    void StreamBuffering(int16_t& percent) override { call("StreamBuffering", percent); }
    void ShoutCastMeta(std::string& artistTitle, std::string& url, std::string& full) override {
        call("ShoutCastMeta", artistTitle, url, full);
    }
    void SegueFound(double& seg) override { call("SegueFound", seg); }
    void WriteLog(std::string& info) override { call("WriteLog", info); }
    void CueInFound(double& pos) override { call("CueInFound", pos); }
    void GotTheFiltersWeNeed(corvid::NameCollection& names) override {
        call("GotTheFiltersWeNeed", names.names());
    }
    void VUPeak(int32_t& left, int32_t& right) override { call("VUPeak", left, right); }
    void StartedCountingFilters(int32_t& max) override { call("StartedCountingFilters", max); }
    void CountingFilters(int32_t& index) override { call("CountingFilters", index); }
    void IsPFLButtonRequired(bool& required) override { call("IsPFLButtonRequired", required); }
    void FinishedCountingFilters() override { call("FinishedCountingFilters"); }
    void Timing(int32_t& level) override { call("Timing", level); }
    void EndOfStream(int32_t result) override { call("EndOfStream", result); }
    void PlayStateChange(int32_t oldState, int32_t newState) override {
        call("PlayStateChange", oldState, newState);
    }
    void StreamOnDemandSegFound(double& seg) override { call("StreamOnDemandSegFound", seg); }
    void SilenceDetected(int32_t seconds) override { call("SilenceDetected", seconds); }

private:
    template <class... Args> void call(const char* name, const Args&... args) {
        py::gil_scoped_acquire gil;
        const auto found = handlers_.find(name);
        if (found == handlers_.end()) return;
        py::object callback = found->second; // the handler may unregister itself
        try {
            callback(args...);
        } catch (py::error_already_set& e) {
            e.discard_as_unraisable(name);
        }
    }

    std::map<std::string, py::object> handlers_;
};

// A player together with the receiver of its events.
struct PyPlayer {
    explicit PyPlayer(corvid::platform::Platform& platform) : player(platform) {
        player.setEvents(&events);
    }
    PythonEvents events;
    Player player;
};

std::vector<std::tuple<std::string, int32_t>> cards(const corvid::SoundCardCollection& c) {
    std::vector<std::tuple<std::string, int32_t>> out;
    for (const auto& entry : c) out.emplace_back(entry.key, entry.value.NumSpeakers());
    return out;
}

void bindLoop(py::module_& m) {
    py::class_<corvid::EventLoop>(m, "EventLoop")
        .def_property_readonly("wakeup_fd", &corvid::EventLoop::wakeupFd)
        .def("process_pending", &corvid::EventLoop::processPending)
        .def("run", &corvid::EventLoop::run, py::call_guard<py::gil_scoped_release>())
        .def(
            "run_until",
            [](corvid::EventLoop& loop, const std::function<bool()>& done, int timeoutMs) {
                py::gil_scoped_release release;
                return loop.runUntil(
                    [&] {
                        py::gil_scoped_acquire gil;
                        return done();
                    },
                    timeoutMs);
            },
            py::arg("done"), py::arg("timeout_ms"))
        .def("quit", &corvid::EventLoop::quit);
}

void bindPlatforms(py::module_& m) {
#ifdef CORVID_PYTHON_NATIVE
    using Output = corvid::NativePlatformOptions::Output;
    py::class_<corvid::NativePlatform>(m, "NativePlatform")
        .def(py::init([](const std::string& output, int helperTickHz, int timeoutMs, bool inMemory,
                         bool echo) {
                 corvid::NativePlatformOptions o;
                 if (output == "silent") o.output = Output::Silent;
                 else if (output == "pulseaudio") o.output = Output::PulseAudio;
                 else if (output != "auto")
                     throw py::value_error("output is \"auto\", \"pulseaudio\" or \"silent\"");
                 o.helperTickHz = helperTickHz;
                 o.soundServerTimeoutMs = timeoutMs;
                 o.settingsInMemory = inMemory;
                 o.echoOperatorToStderr = echo;
                 return std::make_unique<corvid::NativePlatform>(o);
             }),
             py::arg("output") = "auto", py::arg("helper_tick_hz") = 20,
             py::arg("sound_server_timeout_ms") = 2000, py::arg("settings_in_memory") = false,
             py::arg("echo_operator_to_stderr") = true)
        .def_property_readonly("event_loop", &corvid::NativePlatform::eventLoop,
                               py::return_value_policy::reference_internal)
        .def("set_log_sink", [](corvid::NativePlatform& p, py::object sink) {
            p.setLogSink([sink](const std::string& line) {
                py::gil_scoped_acquire gil;
                sink(line);
            });
        })
        .def("read_tags", [](corvid::NativePlatform& p, const std::string& path) {
            const auto t = corvid::readTags(p, path);
            return std::map<std::string, std::string>{
                {"artist", t.artist}, {"title", t.title}, {"year", t.year}, {"genre", t.genre}};
        });
#endif
    py::class_<corvid::SimPlatform>(m, "SimPlatform")
        .def(py::init<>())
        .def_property_readonly("event_loop", &corvid::SimPlatform::eventLoop,
                               py::return_value_policy::reference_internal)
        .def("add_file", &corvid::SimPlatform::addFile, py::arg("path"), py::arg("duration"),
             py::arg("tags") = std::map<std::string, std::string>{}, py::arg("loud_from") = 0.0,
             py::arg("quiet_from") = -1.0)
        .def("remove_file", &corvid::SimPlatform::removeFile)
        .def("add_audio_renderer", &corvid::SimPlatform::addAudioRenderer, py::arg("name"),
             py::arg("speakers") = 2)
        .def("remove_audio_renderer", &corvid::SimPlatform::removeAudioRenderer)
        .def("advance_ms", &corvid::SimPlatform::advanceMs)
        .def("pump", &corvid::SimPlatform::pump)
        .def("run_for", &corvid::SimPlatform::runFor, py::arg("ms"), py::arg("step_ms") = 10)
        .def("heard_ms", &corvid::SimPlatform::heardMs, py::arg("device"), py::arg("item") = "");
}

// A property X read by get_X and written by put_X, the written value passed by reference.
template <class T>
void property(py::class_<PyPlayer>& c, const char* name, T (Player::*get)(), void (Player::*put)(T&)) {
    c.def_property(
        name, [get](PyPlayer& p) { return (p.player.*get)(); },
        [put](PyPlayer& p, T value) { (p.player.*put)(value); });
}
template <class Get> void readOnly(py::class_<PyPlayer>& c, const char* name, Get get) {
    c.def_property_readonly(name, [get](PyPlayer& p) { return (p.player.*get)(); });
}
// A public field of the player: a plain stored value.
#define CORVID_FIELD(c, name)                                                                  \
    c.def_property(                                                                            \
        #name, [](PyPlayer& p) { return p.player.name; },                                      \
        [](PyPlayer& p, std::decay_t<decltype(p.player.name)> value) { p.player.name = value; })
template <class Method> void method(py::class_<PyPlayer>& c, const char* name, Method call) {
    c.def(name, [call](PyPlayer& p) { return (p.player.*call)(); });
}

void bindPlayer(py::module_& m) {
    py::class_<PyPlayer> c(m, "Player");
#ifdef CORVID_PYTHON_NATIVE
    c.def(py::init([](corvid::NativePlatform& p) { return std::make_unique<PyPlayer>(p); }),
          py::keep_alive<1, 2>());
#endif
    c.def(py::init([](corvid::SimPlatform& p) { return std::make_unique<PyPlayer>(p); }),
          py::keep_alive<1, 2>());
    c.def("on", [](PyPlayer& p, const std::string& event, py::object callback) {
        p.events.on(event, std::move(callback));
    }, py::arg("event"), py::arg("callback"), "Calls `callback` with the event's values; None removes it.");

    CORVID_FIELD(c, CanCueIn);
    CORVID_FIELD(c, UsesVu);
    CORVID_FIELD(c, UseAutoCue);
    CORVID_FIELD(c, ForCart);
    CORVID_FIELD(c, m_Endraised);
    CORVID_FIELD(c, StateChangeVerify);

    property<bool>(c, "PipeSenderDownstreamMute", &Player::get_PipeSenderDownstreamMute,
                   &Player::put_PipeSenderDownstreamMute);
    property<bool>(c, "AutoRenderAllowed", &Player::get_AutoRenderAllowed, &Player::put_AutoRenderAllowed);
    property<bool>(c, "LoggingEnabled", &Player::get_LoggingEnabled, &Player::put_LoggingEnabled);
    property<bool>(c, "SilenceDetEnabled", &Player::get_SilenceDetEnabled, &Player::put_SilenceDetEnabled);
    property<bool>(c, "AutoSeg", &Player::get_AutoSeg, &Player::put_AutoSeg);
    property<std::string>(c, "FileName", &Player::get_FileName, &Player::put_FileName);
    property<bool>(c, "mute", &Player::get_mute, &Player::put_mute);
    property<double>(c, "Rate", &Player::get_Rate, &Player::put_Rate);
    property<int32_t>(c, "Volume", &Player::get_Volume, &Player::put_Volume);
    property<double>(c, "CurrentPosition", &Player::get_CurrentPosition, &Player::put_CurrentPosition);
    property<std::string>(c, "ThisCartName", &Player::get_ThisCartName, &Player::put_ThisCartName);
    property<bool>(c, "UseACM", &Player::get_UseACM, &Player::put_UseACM);
    property<int32_t>(c, "AutoSegThresh", &Player::get_AutoSegThresh, &Player::put_AutoSegThresh);
    property<int32_t>(c, "autoCueThresh", &Player::get_autoCueThresh, &Player::put_autoCueThresh);
    property<bool>(c, "UsePitchAdjuster", &Player::get_UsePitchAdjuster, &Player::put_UsePitchAdjuster);
    property<bool>(c, "NewGraphEveryTime", &Player::get_NewGraphEveryTime, &Player::put_NewGraphEveryTime);
    property<std::string>(c, "ID", &Player::get_ID, &Player::put_ID);
    property<bool>(c, "HaldenSourcePrefer", &Player::get_HaldenSourcePrefer, &Player::put_HaldenSourcePrefer);
    property<bool>(c, "Pipe2020", &Player::get_Pipe2020, &Player::put_Pipe2020);
    property<bool>(c, "ASFReaderBanned", &Player::get_ASFReaderBanned, &Player::put_ASFReaderBanned);
    c.def_property("AutoSegPos", [](PyPlayer& p) { return p.player.get_AutoSegPos(); },
                   [](PyPlayer& p, double v) { p.player.put_AutoSegPos(v); });
    c.def_property("ElapsedForcedChange", nullptr,
                   [](PyPlayer& p, float v) { p.player.put_ElapsedForcedChange(v); });
    c.def_property("FilterNamesWeNeed",
                   [](PyPlayer& p) { return p.player.get_FilterNamesWeNeed().names(); },
                   [](PyPlayer& p, const std::vector<std::string>& names) {
                       corvid::NameCollection collection;
                       for (const auto& n : names) collection.Add(n);
                       p.player.putref_FilterNamesWeNeed(collection);
                   });

    readOnly(c, "LastError", &Player::get_LastError);
    readOnly(c, "UsingASFReaderAsFallback", &Player::get_UsingASFReaderAsFallback);
    readOnly(c, "Elapsed", &Player::get_Elapsed);
    readOnly(c, "Duration", &Player::get_Duration);
    readOnly(c, "GraphPosition", &Player::get_GraphPosition);
    readOnly(c, "GraphDuration", &Player::get_GraphDuration);
    readOnly(c, "WMAArtist", &Player::get_WMAArtist);
    readOnly(c, "WMATitle", &Player::get_WMATitle);
    readOnly(c, "WMAYear", &Player::get_WMAYear);
    readOnly(c, "WMAGenre", &Player::get_WMAGenre);
    readOnly(c, "SurroundRenderName", &Player::get_SurroundRenderName);
    readOnly(c, "isStreaming", &Player::get_isStreaming);
    readOnly(c, "StreamBufferingPercent", &Player::get_StreamBufferingPercent);
    readOnly(c, "TryingToPlay", &Player::get_TryingToPlay);
    readOnly(c, "StreamingCanCancelPlay", &Player::get_StreamingCanCancelPlay);
    readOnly(c, "LeftVUPeak", &Player::get_LeftVUPeak);
    readOnly(c, "RightVuPeak", &Player::get_RightVuPeak);
    readOnly(c, "StreamingIsOnDemandFile", &Player::get_StreamingIsOnDemandFile);
    readOnly(c, "UsingHaldenSource", &Player::get_UsingHaldenSource);
    readOnly(c, "UsingASFReader", &Player::get_UsingASFReader);
    readOnly(c, "AutoCuePos", &Player::get_AutoCuePos);
    readOnly(c, "AutoCueBusy", &Player::get_AutoCueBusy);
    c.def_property_readonly("Playstate", [](PyPlayer& p) { return int32_t(p.player.get_Playstate()); });
    c.def_property_readonly("Plugins", [](PyPlayer& p) { return p.player.get_Plugins().names(); });

    method(c, "StopPlaying", &Player::StopPlaying);
    method(c, "Play", &Player::Play);
    method(c, "Pause", &Player::Pause);
    method(c, "GetMainSoundcard", &Player::GetMainSoundcard);
    method(c, "GetPFLSoundcard", &Player::GetPFLSoundcard);
    method(c, "DefaultSoundDeviceExists", &Player::DefaultSoundDeviceExists);
    method(c, "SoundCardRouterSet", &Player::SoundCardRouterSet);
    method(c, "SoundCardNullSet", &Player::SoundCardNullSet);
    method(c, "Init", &Player::Init);
    method(c, "RaiseEndOfStream", &Player::RaiseEndOfStream);
    method(c, "AutoSegSearch", &Player::AutoSegSearch);
    method(c, "StreamingCancelPlay", &Player::StreamingCancelPlay);
    c.def("IsMp4Capable", [](PyPlayer& p, bool f) { return p.player.IsMp4Capable(f); }, py::arg("ForceRefresh") = false);
    c.def("IsOggCapable", [](PyPlayer& p, bool f) { return p.player.IsOggCapable(f); }, py::arg("ForceRefresh") = false);
    c.def("QuerySoundCards", [](PyPlayer& p, bool f) { return cards(p.player.QuerySoundCards(f)); }, py::arg("ForceEnum") = false);
    c.def("EnumRenders", [](PyPlayer& p, bool f) { return cards(p.player.EnumRenders(f)); }, py::arg("ForceRefresh") = false);
    c.def("SetSoundcard", [](PyPlayer& p, std::string name) { return p.player.SetSoundcard(name); });
    c.def("SetPFLSoundcard", [](PyPlayer& p, std::string name) { return p.player.SetPFLSoundcard(name); });
    c.def("CreateNewGraph", [](PyPlayer& p, bool pfl) { p.player.CreateNewGraph(pfl); });
    c.def("AddPlugin", [](PyPlayer& p, const std::string& name) { p.player.AddPlugin(name); });
    c.def("ShowPropPage", [](PyPlayer& p, const std::string& filter, int32_t hwnd) { p.player.ShowPropPage(filter, hwnd); },
          py::arg("filter"), py::arg("hwnd") = 0);
    c.def("ShowMainCardPage", [](PyPlayer& p, int32_t hwnd) { p.player.ShowMainCardPage(hwnd); }, py::arg("hwnd") = 0);
    c.def("TestOpen", [](PyPlayer& p, const std::string& file) { p.player.TestOpen(file); });
    c.def("AutoCueSearch", [](PyPlayer& p, const std::string& file) { p.player.AutoCueSearch(file); }, py::arg("sFile") = "");
    c.def("SilenceDetShowUI", [](PyPlayer& p, const std::string& notes) { p.player.SilenceDetShowUI(nullptr, notes); },
          py::arg("Notes") = "");

    for (const auto& [name, value] : {std::pair{"mpstopped", corvid::mpstopped}, {"mpPaused", corvid::mpPaused},
                                      {"MpPlaying", corvid::MpPlaying}, {"mpUnknown", corvid::mpUnknown},
                                      {"MpCueing", corvid::MpCueing}})
        m.attr(name) = int32_t(value);
    std::vector<std::string> events;
    for (const auto& e : corvid::ids::events) events.emplace_back(e.name);
    m.attr("EVENTS") = events;
}

} // namespace

PYBIND11_MODULE(_corvid, m) {
    m.doc() = "Corvid's audio player for radio playout hosts";
    py::register_exception<corvid::AutomationError>(m, "AutomationError");
    bindLoop(m);
    bindPlatforms(m);
    bindPlayer(m);
}

// The sound card and filter catalogue and the player's main and PFL routing, on the simulated
// machine: what the host is told (collections, events, message boxes, repair commands) and which
// renderer stands in which graph afterwards.

#include "tests/sim/GraphFixture.h"

#include "devices/clsCards.h"
#include "devices/clsEnumFilters.h"
#include "devices/Routing.h"
#include <corvid/AutomationError.h>

#include <utility>

namespace corvid::testing {

namespace {
using sim::names::DefaultDevice;
using sim::names::DummyDevice;
using sim::names::SurroundDevice;

constexpr const char* kReportPath = sim::SimOperatorServices::DetectionReportPath;

std::vector<std::string> keys(const SoundCardCollection& cards) {
    std::vector<std::string> result;
    for (const auto& entry : cards) result.push_back(entry.key);
    return result;
}
} // namespace

// ---- Speaker pairs ----

TEST(SpeakerPairs, OnlyTheFourPairSuffixesMakeAPair) {
    EXPECT_EQ(routing::BaseDeviceName("Speakers [3-4]"), "Speakers");
    EXPECT_EQ(routing::BaseDeviceName("Speakers [7-8]"), "Speakers");
    EXPECT_EQ(routing::BaseDeviceName("Speakers [9-10]"), "Speakers [9-10]");
    EXPECT_EQ(routing::BaseDeviceName("Speakers [2-3]"), "Speakers [2-3]");
    EXPECT_EQ(routing::BaseDeviceName("[1-2]"), "[1-2]"); // five characters: no room for the blank
    EXPECT_EQ(routing::SurroundFilterFor("Speakers [3-4]"), "Sondrel 3-4");
    EXPECT_EQ(routing::SurroundFilterFor("Speakers [1-2]"), "Sondrel 1-2");
    EXPECT_EQ(routing::SurroundFilterFor("Speakers"), "");
}

// ---- Filter enumeration ----

class EnumFiltersTest : public GraphFixture {};

TEST_F(EnumFiltersTest, DuplicateNamesAreKeptUnderANumberAndSkippedNamesNeverAppear) {
    sim->addAudioRenderer("USB Audio", 2);
    sim->addAudioRenderer("USB Audio", 2);
    for (const char* name : {"Video Renderer", "windows media video decoder"}) {
        sim::FilterSpec f;
        f.displayName = name;
        sim->registerFilter(f);
    }
    clsEnumFilters enummer(*sim);
    const auto renderers = enummer.EnumFilters(5);
    ASSERT_TRUE(renderers);
    EXPECT_TRUE(renderers->Contains("USB Audio"));
    EXPECT_TRUE(renderers->Contains("USB Audio 2"));
    const auto filters = enummer.EnumFilters(6);
    ASSERT_TRUE(filters);
    EXPECT_FALSE(filters->Contains("Video Renderer"));
    EXPECT_FALSE(filters->Contains("Windows Media Video Decoder"));
    EXPECT_TRUE(filters->Contains("Wave Parser"));
    // Found, but not added.
    EXPECT_NE(enummer.Report().find("Found Video Renderer\r\n"), std::string::npos);
    EXPECT_EQ(enummer.Report().find("Adding Video Renderer\r\n"), std::string::npos);
}

TEST_F(EnumFiltersTest, EveryStepGoesToTheDetectionReportCategoryEightToNothingAndAFailureReturnsWhatItHas) {
    clsEnumFilters enummer(*sim);
    EXPECT_FALSE(enummer.EnumFilters(8));
    EXPECT_FALSE(ops().writtenFile(kReportPath));
    EXPECT_EQ(enummer.Report(), "");

    std::vector<std::string> progress;
    enummer.FilterCountStarted = [&](int32_t n) { progress.push_back("started " + std::to_string(n)); };
    enummer.FiltersBeingCounted = [&](int32_t i) { progress.push_back(std::to_string(i)); };
    enummer.FilterCountFinished = [&] { progress.push_back("finished"); };
    ASSERT_TRUE(enummer.EnumFilters(5));
    EXPECT_EQ(progress, (std::vector<std::string>{"started 3", "1", "2", "3", "finished"}));
    const std::string report = *ops().writtenFile(kReportPath);
    EXPECT_EQ(report.rfind("Looking for FilterCategory: {E0F158E1-CB04-11d0-BD4E-00A0C911CE86}\r\n"
                           "Creating Enumerator\r\nSetting Catlist\r\nSetting Enumfilters = New Collection\r\n"
                           "Declared FilterClass\r\n",
                           0),
              0u);
    EXPECT_NE(report.find(std::string("Found ") + DefaultDevice + "\r\nAdding " + DefaultDevice + "\r\n"),
              std::string::npos);
    EXPECT_EQ(report.substr(report.size() - 17), "Detection Done!\r\n");

    // A failing enumeration returns what it has.
    sim->failAlways(sim::FaultPoint::Enumerate, platform::category::AudioRenderers,
                    platform::Status::failure(platform::hr::Fail, "Injected failure."));
    clsEnumFilters failing(*sim);
    const auto renderers = failing.EnumFilters(5);
    ASSERT_TRUE(renderers);
    EXPECT_TRUE(renderers->empty());
    EXPECT_NE(failing.Report().find("Detection Done!"), std::string::npos);
}

// ---- Sound card detection ----

class CardsTest : public GraphFixture {};

TEST_F(CardsTest, ThePlayerPassesTheProgressOnAndAMachineWithoutCardsIsToldOnce) {
    EXPECT_EQ(keys(player->QuerySoundCards(false)), (std::vector<std::string>{DefaultDevice, DummyDevice, SurroundDevice}));
    EXPECT_EQ(host.count("FinishedCountingFilters"), 1);
    EXPECT_EQ(host.count("GotTheFiltersWeNeed"), 1);
    EXPECT_GT(host.count("CountingFilters: "), 3);
    EXPECT_EQ(player->get_FilterNamesWeNeed(),
              (NameCollection{"Wave Parser", "_DShowShoutCast", "Halden Sample Grabber", "MPEG-I Stream Splitter",
                              "MPEG Layer-3 Decoder", "ACM Wrapper"}));
    // Held now: a second query does not detect again, a forced one does.
    host.clear();
    player->QuerySoundCards(false);
    EXPECT_EQ(host.count("GotTheFiltersWeNeed"), 0);
    player->QuerySoundCards(true);
    EXPECT_EQ(host.count("GotTheFiltersWeNeed"), 1);

    // A machine without sound cards is told once; a mixer that will not start is explained.
    for (const char* device : {DefaultDevice, DummyDevice, SurroundDevice}) sim->removeAudioRenderer(device);
    clsCards cards(*sim);
    EXPECT_TRUE(cards.GetSoundcards().empty());
    ASSERT_EQ(ops().messageBoxes().size(), 1u);
    EXPECT_EQ(ops().messageBoxes()[0].text, "There was a SERIOUS error detecting the soundcards on your system.\r\n"
                                            "Have You got Microsoft DirectX Installed??");
    EXPECT_EQ(ops().messageBoxes()[0].title, "Orvo Can't find any soundcards!");
    EXPECT_EQ(ops().messageBoxes()[0].icon, platform::MessageIcon::Critical);
    EXPECT_TRUE(cards.FiltersWeNeed().empty());

    // The volume mixer that will not start is explained.
    sim->failAlways(sim::FaultPoint::StartProcess, "SNDVOL32.EXE",
                    platform::Status::failure(platform::hr::FileNotFound, "not found"));
    cards.AdjustVolumeSettings();
    EXPECT_TRUE(boxShown("Can't open the Volume control program", "Sorry"));
}

TEST_F(CardsTest, AMissingSplitterStartsTheRepairEachTimeAndIsShownOnlyDuringIt) {
    sim->unregisterFilter("MPEG-I Stream Splitter");
    clsCards cards(*sim);
    int got = 0;
    CardsEvents events;
    events.GotFiltersWeNeed = [&](FilterCatalogue&, NameCollection&) { ++got; };
    EXPECT_EQ(cards.GetSoundcards(&events).Count(), 3u);
    EXPECT_EQ(cards.GetSoundcards(&events).Count(), 3u);
    ASSERT_EQ(ops().processes().size(), 2u);
    EXPECT_EQ(ops().processes()[0].commandLine, "regsvr32.exe  quartz.dll /s");
    EXPECT_EQ(ops().processes()[0].style, platform::WindowStyle::Minimized);
    EXPECT_EQ(got, 0);
    EXPECT_FALSE(boxShown("Cant find stream splitter!"));
    EXPECT_FALSE(cards.RepairInProgress());

    // The splitter message appears only while the repair is under way: a detection that runs while the repair command is being started.
    bool reentered = false;
    ops().onProcess([&](const sim::StartedProcess&) {
        if (std::exchange(reentered, true)) return;
        cards.GetSoundcards(&events);
    });
    cards.GetSoundcards(&events);
    EXPECT_TRUE(boxShown("Cant find stream splitter!", "It is required for mp3 playback in Orvo."));
    EXPECT_EQ(got, 1);
}

// ---- Main output ----

class RoutingTest : public GraphFixture {
protected:
    void SetUp() override {
        GraphFixture::SetUp();
        set(&Player::put_ThisCartName, "Cart 7");
    }
    bool setMain(std::string name) { return player->SetSoundcard(name); }
    bool setPfl(std::string name) { return player->SetPFLSoundcard(name); }
};

TEST_F(RoutingTest, AnEmptyNameIsTheDefaultDeviceAndTheCallerSeesIt) {
    std::string name;
    EXPECT_TRUE(player->SetSoundcard(name));
    EXPECT_EQ(name, DefaultDevice);
    EXPECT_EQ(player->GetMainSoundcard(), DefaultDevice);
    EXPECT_EQ(player->GetPFLSoundcard(), DefaultDevice);
    EXPECT_TRUE(player->DefaultSoundDeviceExists());
    sim->removeAudioRenderer(DefaultDevice);
    EXPECT_FALSE(player->DefaultSoundDeviceExists());
}

TEST_F(RoutingTest, ADeviceIsNotChangedWhileAnItemIsLoadedButTheDummyTakesOverAndTheRouterBringsItBack) {
    ASSERT_TRUE(load(Mp3));
    EXPECT_TRUE(setMain(DummyDevice));
    EXPECT_TRUE(boxShown("Cant Change cards while playing!", "Cart 7"));
    EXPECT_TRUE(hasFilter(DefaultDevice));
    EXPECT_FALSE(hasFilter(DummyDevice));
    EXPECT_EQ(player->GetMainSoundcard(), DefaultDevice);

    // The dummy device takes over the chain and the router brings it back.
    player->SoundCardNullSet();
    EXPECT_TRUE(links().count(std::string("Halden Sample Grabber -> ") + DummyDevice));
    EXPECT_FALSE(hasFilter(DefaultDevice));
    EXPECT_EQ(player->GetMainSoundcard(), DefaultDevice); // the dummy is not the chosen device
    player->SoundCardRouterSet();
    EXPECT_TRUE(links().count(std::string("Halden Sample Grabber -> ") + DefaultDevice));
    EXPECT_FALSE(hasFilter(DummyDevice));
}

TEST_F(RoutingTest, AnotherDeviceTakesTheRenderersPlaceAndIsKeptForLaterGraphs) {
    ASSERT_TRUE(setMain(DummyDevice));
    EXPECT_EQ(player->GetMainSoundcard(), DummyDevice);
    EXPECT_EQ(countFilters(DummyDevice), 1);
    EXPECT_FALSE(hasFilter(DefaultDevice));
    EXPECT_TRUE(setMain(DummyDevice)); // already there

    player->CreateNewGraph(false);
    ASSERT_TRUE(load(Mp3)) << player->get_LastError();
    EXPECT_TRUE(links().count(std::string("Halden Sample Grabber -> ") + DummyDevice));
    EXPECT_FALSE(hasFilter(DefaultDevice));
}

TEST_F(RoutingTest, ASpeakerPairGetsItsSurroundFilterInFrontOfTheCard) {
    const std::string pair = std::string(SurroundDevice) + " [3-4]";
    ASSERT_TRUE(setMain(pair));
    EXPECT_EQ(player->GetMainSoundcard(), pair);
    EXPECT_EQ(player->get_SurroundRenderName(), pair);
    EXPECT_TRUE(hasFilter("Sondrel 3-4"));
    EXPECT_EQ(countFilters(pair), 1); // the device's renderer, under the pair's name

    ASSERT_TRUE(load(Mp3)) << player->get_LastError();
    EXPECT_TRUE(links().count("Halden Sample Grabber -> Sondrel 3-4"));
    EXPECT_TRUE(links().count("Sondrel 3-4 -> " + pair));

    // Back to the whole device: no pair, no surround filter in the next graph.
    load("");
    ASSERT_TRUE(setMain(SurroundDevice));
    EXPECT_EQ(player->get_SurroundRenderName(), "");
    EXPECT_EQ(player->GetMainSoundcard(), SurroundDevice);
}

TEST_F(RoutingTest, APairWithoutItsSurroundFilterIsReportedAndDoesNotPlayHalfRouted) {
    sim->unregisterFilter("Sondrel 5-6");
    const std::string pair = std::string(SurroundDevice) + " [5-6]";
    EXPECT_TRUE(setMain(pair));
    EXPECT_TRUE(boxShown("Critical error with surround sound support in Orvo 2012+ - reinstall me?",
                         "Orvo 2012+ surround problem"));
    EXPECT_FALSE(load(Mp3));
    EXPECT_NE(player->get_LastError().find("7779 InsertSurroundFilter NEEDS a Surround in pin"), std::string::npos)
        << player->get_LastError();
}

TEST_F(RoutingTest, AnUnknownOrOtherBracketedNameIsRefusedButRememberedAndEnumRendersListsEachPair) {
    EXPECT_FALSE(setMain(std::string(SurroundDevice) + " [9-10]"));
    EXPECT_EQ(player->GetMainSoundcard(), std::string(SurroundDevice) + " [9-10]");
    EXPECT_FALSE(setMain("No Such Card"));
    EXPECT_EQ(player->GetMainSoundcard(), "No Such Card");
    EXPECT_TRUE(ops().messageBoxes().empty());
    EXPECT_FALSE(hasFilter(DefaultDevice));

    // EnumRenders lists each speaker pair.
    const SoundCardCollection renders = player->EnumRenders(false);
    const auto names = keys(renders);
    for (const char* suffix : {"", " [1-2]", " [3-4]", " [5-6]", " [7-8]"})
        EXPECT_NE(std::find(names.begin(), names.end(), std::string(SurroundDevice) + suffix), names.end()) << suffix;
    EXPECT_EQ(std::count(names.begin(), names.end(), DefaultDevice), 1);
    const int refreshes = sim->catalogue().refreshCount();
    player->EnumRenders(false);
    EXPECT_EQ(sim->catalogue().refreshCount(), refreshes);
    player->EnumRenders(true);
    EXPECT_EQ(sim->catalogue().refreshCount(), refreshes + 1);
}

// ---- Dummy output ----

TEST_F(RoutingTest, ADummyThatCannotRenderIsRaisedToTheHost) {
    player->QuerySoundCards(false);
    sim->failAlways(sim::FaultPoint::CreateFilter, DummyDevice,
                    platform::Status::failure(platform::hr::NoAudioHardware, "gone"));
    const auto e = raised([&] { player->SoundCardNullSet(); });
    ASSERT_TRUE(e) << "no error raised";
    EXPECT_EQ(e->number(), 963);
    EXPECT_EQ(e->description(), "SoundCardRouterSet: Unexpected: Should ALWAYS be able to render to NULL (Dummy)!");
    EXPECT_TRUE(logged(std::string("WARNING: PLAYER CANNOT ADD SOUND CARD: ") + DummyDevice));
}

// ---- PFL output ----

TEST_F(RoutingTest, APflDeviceNeedsAMainDeviceFirstThenGetsItsOwnGraphAndAsksForThePflButton) {
    EXPECT_TRUE(setPfl(DummyDevice));
    EXPECT_TRUE(boxShown("You Must Set a specific playback device for this player before setting the PFL device!",
                         "Set the Main output device first! - Cart 7"));
    EXPECT_EQ(player->GetPFLSoundcard(), DefaultDevice);
    EXPECT_TRUE(setPfl("")); // the default needs nothing

    ASSERT_TRUE(setMain(SurroundDevice));
    host.clear();
    ASSERT_TRUE(setPfl(DummyDevice));
    EXPECT_EQ(player->GetPFLSoundcard(), DummyDevice);
    int pflGraphs = 0; // a graph of its own, the main one unchanged
    for (const auto& graph : sim->graphs())
        if (graph != player->mainGraph())
            for (const auto& f : graph->filters()) pflGraphs += f->name() == DummyDevice;
    EXPECT_EQ(pflGraphs, 1);
    EXPECT_FALSE(hasFilter(DummyDevice));
    EXPECT_EQ(host.count("IsPFLButtonRequired: true"), 1);
    EXPECT_FALSE(setPfl("No Such Card"));

    ASSERT_TRUE(setPfl(DefaultDevice));
    EXPECT_EQ(host.count("IsPFLButtonRequired: false"), 1);

    ASSERT_TRUE(load(Mp3));
    player->Play();
    player->Pause(); // paused counts as busy for the PFL device
    EXPECT_TRUE(setPfl(DummyDevice));
    EXPECT_TRUE(boxShown("Cant Change cards while playing!", "Cart 7"));
}

} // namespace corvid::testing

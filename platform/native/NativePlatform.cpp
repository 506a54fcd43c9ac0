#include "platform/native/NativePlatform.h"

#include "platform/native/Helpers.h"
#include "platform/native/IniSettingsStore.h"
#include "platform/native/TagLibReader.h"
#include "platform/native/filters/FFmpeg.h"

#include <algorithm>

namespace corvid::native {

using platform::Status;

NativePlatform::NativePlatform(NativeOptions options)
    : options_(std::move(options)), loop_(std::make_shared<NativeEventLoop>(
          std::chrono::microseconds(1000000 / std::clamp(options_.helperTickHz, 1, 1000)))) {
    initFFmpeg();
    operator_.setEchoToStderr(options_.echoOperatorToStderr);
    settings_ = options_.settings ? options_.settings : std::make_shared<IniSettingsStore>();
    catalogue_ = std::make_shared<NativeCatalogue>(
        options_.output, options_.soundServerTimeoutMs,
        [this](const std::string& line) { operator_.report(line); });
}

NativePlatform::~NativePlatform() {
    releaseProcessWide();
    // Tasks still queued are dropped unrun with the loop: the objects they would report to
    // are gone or going.
}

Status NativePlatform::createGraph(platform::GraphPtr& graph) {
    GraphContext context;
    context.loop = loop_;
    std::weak_ptr<NativeCatalogue> catalogue = catalogue_;
    context.makeDefaultRenderer = [catalogue]() -> NativeFilterPtr {
        auto c = catalogue.lock();
        return c ? c->makeDefaultRenderer() : nullptr;
    };
    context.report = [this](const std::string& line) { operator_.report(line); };
    graph = std::make_shared<NativeGraph>(std::move(context));
    return Status::success();
}

Status NativePlatform::createGraphHelper(platform::GraphHelperKind kind,
                                         platform::GraphHelperPtr& helper) {
    helper = std::make_shared<NativeGraphHelper>(kind, loop_, loop_->clock());
    return Status::success();
}

std::unique_ptr<platform::TagReader> NativePlatform::createTagReader() {
    return std::make_unique<TagLibReader>();
}

} // namespace corvid::native

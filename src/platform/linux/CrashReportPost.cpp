// The HTTP side of sending crash reports, in unwarp-report.so: one POST of a report's text.
#include <httplib.h>

#include "platform/linux/ReportModule.h"

namespace platform::report_module {
namespace {

int post(const Post& post, std::string* why) {
    httplib::Client client(post.origin);
    client.set_connection_timeout(post.connectSeconds, 0);
    client.set_read_timeout(post.transferSeconds, 0);
    client.set_write_timeout(post.transferSeconds, 0);
    httplib::Headers headers{{"X-Unwarp-Report", post.reportName}};
    auto answer = client.Post(post.path, headers, reinterpret_cast<const char*>(post.body),
                              post.size, "text/plain; charset=utf-8");
    if (!answer) {
        if (why) *why = httplib::to_string(answer.error());
        return 0;
    }
    return answer->status;
}

const ModuleApi kApi{.header = {kModuleVersion, sizeof(ModuleApi)}, .post = &post};

}  // namespace
}  // namespace platform::report_module

extern "C" __attribute__((visibility("default"))) const platform::modules::ModuleHeader*
unwarp_report_module() {
    return &platform::report_module::kApi.header;
}

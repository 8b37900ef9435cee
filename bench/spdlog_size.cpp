// spdlog as the counting driver uses it (its thread-safe file sink, the "%v" pattern, a
// logger's info), alone in a shared library built for the board with the
// library's flags: its stripped size stands beside libdbg.so's.
#include <memory>
#include <string>

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

extern "C" __attribute__((visibility("default"))) void spdlog_size_trace(char const* path, char const* text)
{
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    spdlog::logger logger("size", sink);
    logger.set_formatter(
        std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, std::string()));
    logger.info(text);
}

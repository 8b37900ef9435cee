// Properties checked on arbitrary input, shared by the libFuzzer targets
// (fuzz/fuzz_*.cpp) and by the corpus replay under GoogleTest
// (tests/test_fuzz_corpus.cpp). Each check takes the raw input bytes and
// returns an empty string when the library behaved as its model says, or a
// description of the first difference.
#ifndef DBG_FUZZ_PROPERTIES_H
#define DBG_FUZZ_PROPERTIES_H

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

#include "ScratchDir.h"

namespace dbg_fuzz {

// The targets, as named by their corpus directories fuzz/corpus/<name>/.
std::vector<std::string> const& targetNames();

// ---- command interpretation ------------------------------------------------

// The process-wide state the command check needs: the IMC stand-in started
// with call recording, answers kept out of standard output, standard output
// itself discarded, and the working directory moved into a private scratch
// directory (file names of "DBG out file" land there). Made once per process;
// the scratch directory is removed at exit.
class CommandBench {
public:
    static CommandBench& instance();
    std::string const& directory() const { return m_scratch.path(); }
    void removeStopSocket() const;  // /tmp//dbg<pid>.key, left by "DBG stop"
    void emptyDirectory() const;

private:
    CommandBench();
    ~CommandBench();
    ScratchDir m_scratch;
    std::string m_previousDirectory;
    std::streambuf* m_previousOutput = nullptr;
};

// The line is the input. Before it is handed over, any "/" in the name a
// "DBG out file" line would select is replaced by "_", so no name reaches
// outside the scratch directory. The line is then given to
// DBG_CmdObserver::command three times, starting from the console, the IMC
// sink and a file sink, and each time: exactly the IMC calls of its branch
// (one answer, and for "DBG read" the instance of module 255 and the posted
// record before it), the answer the command table gives, and the sink
// replaced only as the option words say.
std::string checkCommand(std::uint8_t const* data, std::size_t size);

// ---- configuration reader ----------------------------------------------------

// The input is the whole configuration file, read from memory by the
// version reader's line scan; its two values must equal the line model's.
std::string checkVersion(std::uint8_t const* data, std::size_t size);

// ---- hexadecimal dump ----------------------------------------------------------

// Length 3n + floor(n/8) and the exact text of the reference model.
std::string checkHexaDump(std::uint8_t const* data, std::size_t size);

// ---- percent escaping --------------------------------------------------------

// The input, split at its first 0xFF byte into text and detail, goes through
// DBG_Log::trace (text) and DBG_Log::error (text, detail) into a recording
// sink: every "%" of the text doubled, nothing else changed, the detail and
// the origin untouched, the flush flags and lines passed through.
std::string checkPercentEscaping(std::uint8_t const* data, std::size_t size);

// ---- IMC sink buffer -----------------------------------------------------------

// The input is a program of insertions and flushes on one DBG_OutputImc
// (some flushes with the manager missing or its trace/error failing); the
// texts the IMC stand-in receives must equal a model of the buffer: rewound
// after a delivered flush, never emptied, one NUL written at each flush that
// found the manager.
std::string checkImcSink(std::uint8_t const* data, std::size_t size);

// Runs the named target's check (for the replay).
std::string checkTarget(std::string const& target, std::uint8_t const* data, std::size_t size);

}  // namespace dbg_fuzz

#endif

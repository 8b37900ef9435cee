#include "FuzzProperties.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <typeinfo>

#include "DBG_CmdObserver.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "DBG_Output.h"
#include "DBG_OutputFile.h"
#include "DBG_OutputImc.h"
#include "DBG_Version.h"
#include "DBG_VersionLines.h"
#include "ExpectedTexts.h"
#include "ImcCalls.h"
#include "ImcProbe.h"
#include "RecordingSink.h"
#include "ReferenceModels.h"
#include "ShutdownSocketPaths.h"
#include "VCOM_Types.h"

namespace dbg_fuzz {

namespace {

using imc_standin::Call;
using imc_standin::Fault;
using imc_standin::Operation;

// Discards everything: standard output while commands run.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
};

constexpr unsigned char benchIdentifier = 0x5A;

bool has(std::string const& line, char const* word)
{
    return line.find(word) != std::string::npos;
}

enum class SinkKind { Console, Imc, File };

SinkKind kindOf(DBG_Output const* sink)
{
    if (typeid(*sink) == typeid(DBG_OutputImc))
        return SinkKind::Imc;
    if (typeid(*sink) == typeid(DBG_OutputFile))
        return SinkKind::File;
    return SinkKind::Console;
}

char const* kindName(SinkKind kind)
{
    switch (kind) {
    case SinkKind::Console: return "console";
    case SinkKind::Imc: return "IMC";
    case SinkKind::File: return "file";
    }
    return "?";
}

// What the command table says a line does, worked out from the line alone.
struct CommandModel {
    enum class Branch { NotInstrumented, Out, Stop, Read, Version, Help } branch = Branch::Help;
    enum class Selection { Unchanged, Console, Imc, File } selection = Selection::Unchanged;
    std::string fileName;
};

CommandModel modelOf(std::string const& line)
{
    CommandModel model;
    using Branch = CommandModel::Branch;
    using Selection = CommandModel::Selection;
    if (has(line, "DBG memchk") || has(line, "DBG memtrc")) {
        model.branch = Branch::NotInstrumented;
    } else if (has(line, "DBG out")) {
        model.branch = Branch::Out;
        if (has(line, "std")) {
            model.selection = Selection::Console;
        } else if (has(line, "imc")) {
            model.selection = Selection::Imc;
        } else if (has(line, "file ")) {
            model.selection = Selection::File;
            model.fileName = line.substr(line.find("file ") + 5);
        }
    } else if (has(line, "DBG stop")) {
        model.branch = Branch::Stop;
    } else if (has(line, "DBG read")) {
        model.branch = Branch::Read;
    } else if (has(line, "DBG version")) {
        model.branch = Branch::Version;
    }
    return model;
}

// A name the check can look for in the scratch directory.
bool plainName(std::string const& name)
{
    if (name.empty() || name.size() > 64 || name == "." || name == "..")
        return false;
    for (unsigned char c : name)
        if (!(std::isalnum(c) || c == '.' || c == '_' || c == '-'))
            return false;
    return true;
}

std::vector<unsigned char> expectedRequest()
{
    std::vector<unsigned char> bytes(2060, 0);
    bytes[2] = benchIdentifier;
    std::uint32_t const code = 600;
    std::memcpy(&bytes[8], &code, sizeof code);
    return bytes;
}

// The IMC calls of one command, compared with its branch.
std::string checkCommandCalls(CommandModel const& model, std::string const& expectedAnswer)
{
    std::vector<Call> const& calls = imc_standin::calls();
    std::size_t index = 0;
    if (model.branch == CommandModel::Branch::Read) {
        if (calls.size() != 3 || calls[0].operation != Operation::Instance || calls[0].number != 255 ||
            calls[1].operation != Operation::Post)
            return "\"DBG read\" must ask for manager 255, post once and answer once; calls:" +
                   describeCalls(calls);
        if (calls[1].record != expectedRequest())
            return "the posted configuration request differs from the 600 record";
        index = 2;
    } else if (calls.size() != 1) {
        return "expected exactly one answer and no other IMC call; calls:" + describeCalls(calls);
    }
    if (calls[index].operation != Operation::AnswerCommand)
        return "the last IMC call is not the answer; calls:" + describeCalls(calls);
    if (calls[index].text != expectedAnswer)
        return "answer " + quoted(calls[index].text) + ", expected " + quoted(expectedAnswer);
    return "";
}

}  // namespace

std::vector<std::string> const& targetNames()
{
    static std::vector<std::string> const names{"command", "version", "hexadump", "percent", "imc_sink"};
    return names;
}

// ---- command interpretation ------------------------------------------------

CommandBench& CommandBench::instance()
{
    static CommandBench bench;
    return bench;
}

CommandBench::CommandBench()
{
    static NullBuffer discard;
    m_previousOutput = std::cout.rdbuf(&discard);
    imc_standin::start(benchIdentifier);
    imc_standin::setTraceStream(nullptr);
    imc_standin::setPostHandler(nullptr);
    imc_standin::setAnswerHandler([](std::string const&) {});
    imc_standin::clearFaults();
    imc_standin::setRecording(true);

    char previous[4096];
    if (!getcwd(previous, sizeof previous))
        throw std::runtime_error(std::string("getcwd: ") + std::strerror(errno));
    m_previousDirectory = previous;
    if (chdir(directory().c_str()) != 0)
        throw std::runtime_error("cannot enter " + directory() + ": " + std::strerror(errno));
    removeStopSocket();
}

CommandBench::~CommandBench()
{
    DBG_OutManager::desinstance();  // closes a file sink before its directory goes
    imc_standin::setRecording(false);
    imc_standin::clearCalls();
    imc_standin::setAnswerHandler(nullptr);
    imc_standin::stop();
    removeStopSocket();
    // The discarding buffer goes with this object; std::cout is flushed
    // once more when the program ends.
    std::cout.rdbuf(m_previousOutput);
    if (chdir(m_previousDirectory.c_str()) != 0)
        std::perror("dbg_fuzz: chdir back");
}

void CommandBench::removeStopSocket() const
{
    unlink(ShutdownSocketPaths::ownPath().c_str());
}

void CommandBench::emptyDirectory() const
{
    // Removed whole and made anew: the working directory is entered again.
    removeTree(directory());
    if (mkdir(directory().c_str(), 0700) != 0 || chdir(directory().c_str()) != 0)
        throw std::runtime_error("cannot make " + directory() + " anew: " + std::strerror(errno));
}

std::string checkCommand(std::uint8_t const* data, std::size_t size)
{
    CommandBench& bench = CommandBench::instance();
    std::string line(reinterpret_cast<char const*>(data), size);
    CommandModel model = modelOf(line);
    if (model.selection == CommandModel::Selection::File) {
        std::string::size_type const nameStart = line.find("file ") + 5;
        for (std::string::size_type i = nameStart; i < line.size(); ++i)
            if (line[i] == '/')
                line[i] = '_';
        model = modelOf(line);
    }

    DBG_OutManager* manager = DBG_OutManager::instance();
    if (!manager->pCmdObserver)
        return "the output manager has no command observer";
    std::string failure;
    for (SinkKind start : {SinkKind::Console, SinkKind::Imc, SinkKind::File}) {
        switch (start) {
        case SinkKind::Console: manager->setConsoleOutput(); break;
        case SinkKind::Imc: manager->setImcOutput(); break;
        case SinkKind::File: manager->setFileOutput("start.trace"); break;
        }
        DBG_Output const* const before = manager->pOutput;
        std::string const beforeName = std::string(*before);

        std::string expectedAnswer;
        switch (model.branch) {
        case CommandModel::Branch::NotInstrumented: expectedAnswer = "Binary is not instrumented\n"; break;
        case CommandModel::Branch::Stop: expectedAnswer = "Stoping SIP gateway ...\n"; break;
        case CommandModel::Branch::Read: expectedAnswer = "Read configuration\n"; break;
        case CommandModel::Branch::Help: expectedAnswer = expectedHelpText; break;
        case CommandModel::Branch::Version: {
            DBG_Version const version;
            expectedAnswer = "Version is " +
                             (version.m_voipVersion.empty() ? std::string("unknown") : version.m_voipVersion) + "\n";
            break;
        }
        case CommandModel::Branch::Out:
            switch (model.selection) {
            case CommandModel::Selection::Unchanged: expectedAnswer = beforeName; break;
            case CommandModel::Selection::Console: expectedAnswer = "console"; break;
            case CommandModel::Selection::Imc: expectedAnswer = "IMC"; break;
            case CommandModel::Selection::File: expectedAnswer = "file " + model.fileName; break;
            }
            expectedAnswer = "Debug Output set to " + expectedAnswer + "\n";
            break;
        }

        imc_standin::clearCalls();
        bench.removeStopSocket();
        try {
            manager->pCmdObserver->command(line, 0);
        } catch (std::exception const& error) {
            failure = std::string("command threw ") + typeid(error).name() + ": " + error.what();
        }
        bench.removeStopSocket();
        if (failure.empty())
            failure = checkCommandCalls(model, expectedAnswer);

        DBG_Output const* const after = manager->pOutput;
        bool const switches = model.branch == CommandModel::Branch::Out &&
                              model.selection != CommandModel::Selection::Unchanged;
        if (failure.empty() && !switches && after != before)
            failure = "the sink was replaced although the line selects none";
        if (failure.empty() && switches) {
            SinkKind const expected = model.selection == CommandModel::Selection::Console ? SinkKind::Console
                                      : model.selection == CommandModel::Selection::Imc   ? SinkKind::Imc
                                                                                          : SinkKind::File;
            if (kindOf(after) != expected)
                failure = std::string("sink is ") + kindName(kindOf(after)) + ", expected " + kindName(expected);
            else if (model.selection == CommandModel::Selection::File && std::string(*after) != "file " + model.fileName)
                failure = "file sink named " + quoted(std::string(*after));
            else if (model.selection == CommandModel::Selection::File && plainName(model.fileName)) {
                struct stat status;
                if (stat(model.fileName.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != 0)
                    failure = "no empty file " + quoted(model.fileName) + " in the working directory";
            }
        }
        if (!failure.empty()) {
            failure = "line " + quoted(line) + " from the " + kindName(start) + " sink: " + failure;
            break;
        }
    }
    manager->setConsoleOutput();
    imc_standin::clearCalls();
    if (model.selection == CommandModel::Selection::File)
        bench.emptyDirectory();  // "start.trace" is only ever truncated
    return failure;
}

// ---- configuration reader ----------------------------------------------------

std::string checkVersion(std::uint8_t const* data, std::size_t size)
{
    std::string const content(reinterpret_cast<char const*>(data), size);

    // The line rules: lines end at a line feed (the last may lack it); a
    // line of 255 characters or more ends the reading unexamined; a line is
    // taken up to its first NUL; "TRAXO" lines set the second value (the
    // last one wins) and the first "voip" line sets the version and ends the
    // reading; the 11 characters behind the keyword are the value.
    std::string voip;
    std::string traxo;
    std::string::size_type position = 0;
    while (position < content.size()) {
        std::string::size_type const end = content.find('\n', position);
        std::string::size_type const length = (end == std::string::npos ? content.size() : end) - position;
        if (length >= 255)
            break;
        std::string line = content.substr(position, length);
        line = line.substr(0, line.find('\0'));
        if (line.rfind("TRAXO", 0) == 0) {
            traxo = line.substr(5, 11);
        } else if (line.rfind("voip", 0) == 0) {
            voip = line.substr(4, 11);
            break;
        }
        if (end == std::string::npos)
            break;
        position = end + 1;
    }

    std::istringstream lines(content);
    std::string readVoip;
    std::string readTraxo;
    dbg_version::scanLines(lines, readVoip, readTraxo);
    if (readVoip != voip)
        return "version " + quoted(readVoip) + ", model " + quoted(voip) + " for " + quoted(content);
    if (readTraxo != traxo)
        return "TRAXO value " + quoted(readTraxo) + ", model " + quoted(traxo) + " for " + quoted(content);
    return "";
}

// ---- hexadecimal dump ----------------------------------------------------------

std::string checkHexaDump(std::uint8_t const* data, std::size_t size)
{
    unsigned int const length = static_cast<unsigned int>(size);
    std::string const dump = DBG_Output::hexaDump(length ? data : nullptr, length);
    std::size_t const expectedLength = 3 * std::size_t(length) + length / 8;
    if (dump.size() != expectedLength)
        return "dump of " + std::to_string(length) + " bytes is " + std::to_string(dump.size()) +
               " characters, expected " + std::to_string(expectedLength);

    std::string const model = hexDumpModel(data, length);
    if (model != dump)
        return "dump " + quoted(dump) + ", model " + quoted(model);
    return "";
}

// ---- percent escaping --------------------------------------------------------

namespace {

std::string describeEvents(std::vector<std::string> const& events)
{
    std::string out;
    for (std::string const& event : events)
        out += " " + quoted(event);
    return out;
}

}  // namespace

std::string checkPercentEscaping(std::uint8_t const* data, std::size_t size)
{
    std::string const input(reinterpret_cast<char const*>(data), size);
    std::string::size_type const split = input.find('\xFF');
    std::string const text = input.substr(0, split);
    std::string const detail = split == std::string::npos ? std::string() : input.substr(split + 1);
    std::string const origin = "fuzz%s.cpp";
    int const line = static_cast<int>(size);

    std::vector<std::string> events;
    DBG_OutManager* manager = DBG_OutManager::instance();
    delete manager->pOutput;
    manager->pOutput = new RecordingSink(&events);
    std::string failure;
    try {
        DBG_Log const log;
        log.trace(text, origin, line);
        log.error(text, detail, origin, line + 1);
    } catch (std::exception const& error) {
        failure = std::string("the logger threw: ") + error.what();
    }
    manager->setConsoleOutput();
    if (!failure.empty())
        return failure;

    std::vector<std::string> const expected{
        "text:" + percentDoubled(text),
        "flush:0:" + origin + ":" + std::to_string(line),
        "text:" + percentDoubled(text),
        "text:(",
        "text:" + detail,
        "text:)",
        "flush:1:" + origin + ":" + std::to_string(line + 1),
        "destroyed",
    };
    if (events != expected)
        return "forwarded" + describeEvents(events) + ", expected" + describeEvents(expected);
    return "";
}

// ---- IMC sink buffer -----------------------------------------------------------

namespace {

// The buffer as the sink must keep it: written at a position that a
// delivered flush moves back to the start, its extent never shrinking.
struct BufferModel {
    std::string content;
    std::size_t position = 0;

    void write(std::string const& bytes)
    {
        for (char c : bytes) {
            if (position < content.size())
                content[position] = c;
            else
                content.push_back(c);
            ++position;
        }
    }
};

struct Handed {
    bool isError;
    std::string text;
    std::string origin;
    int line;
};

char const* const codecNames[] = {"nil",  "g711alaw", "g711ulaw", "g723",    "g729",
                                  "g729a", "g711nil", "g729nil",  "g722", "g722.2"};

void startImcBench()
{
    static bool const started = [] {
        imc_standin::start(benchIdentifier);
        imc_standin::setTraceStream(nullptr);
        imc_standin::setRecording(true);
        return true;
    }();
    static_cast<void>(started);
}

}  // namespace

std::string checkImcSink(std::uint8_t const* data, std::size_t size)
{
    startImcBench();
    imc_standin::clearFaults();
    imc_standin::clearCalls();

    DBG_OutputImc sink;
    BufferModel model;
    std::vector<Handed> expected;
    std::string failure;
    std::size_t i = 0;
    auto next = [&]() -> std::uint8_t { return i < size ? data[i++] : 0; };
    std::string const origin = "imc%sink.cpp";

    while (i < size && failure.empty()) {
        std::uint8_t const op = data[i++] % 8;
        int const line = static_cast<int>(i);
        switch (op) {
        case 0: {  // a string of up to 255 bytes
            std::size_t count = next();
            if (count > size - i)
                count = size - i;
            std::string const text(reinterpret_cast<char const*>(data + i), count);
            i += count;
            sink << text;
            model.write(text);
            break;
        }
        case 1: {  // a 32-bit integer
            std::uint32_t bits = 0;
            for (int b = 0; b < 4; ++b)
                bits = (bits << 8) | next();
            int const number = static_cast<int>(bits);
            sink << number;
            model.write(std::to_string(number));
            break;
        }
        case 2: {  // one byte
            unsigned char const c = next();
            sink << c;
            model.write(std::string(1, char(c)));
            break;
        }
        case 3:
        case 4: {  // a delivered trace or error
            bool const isError = op == 4;
            try {
                sink.flush(isError, origin, line);
            } catch (std::exception const& error) {
                failure = std::string("flush threw: ") + error.what();
                break;
            }
            model.write(std::string(1, '\0'));
            expected.push_back({isError, model.content, origin, line});
            model.position = 0;
            break;
        }
        case 5: {  // a codec, by name
            int const value = next() % 16;
            sink << static_cast<VCOM_Codec>(value);
            model.write(value < 10 ? codecNames[value] : "ERROR : OUT OF ARRAY !!!");
            break;
        }
        case 6: {  // no manager at the flush: nothing written, nothing sent
            bool const null = next() & 1;
            imc_standin::injectFault(Operation::Instance, null ? Fault::NullInstance : Fault::RuntimeError, 1);
            bool threw = false;
            try {
                sink.flush(false, origin, line);
            } catch (std::runtime_error const&) {
                threw = true;
            }
            imc_standin::clearFaults();
            if (!threw)
                failure = "flush without a manager did not throw std::runtime_error";
            break;
        }
        case 7: {  // the manager's trace or error fails: NUL written, not rewound
            bool const isError = next() & 1;
            imc_standin::injectFault(isError ? Operation::Error : Operation::Trace, Fault::RuntimeError, 1);
            bool threw = false;
            try {
                sink.flush(isError, origin, line);
            } catch (std::runtime_error const&) {
                threw = true;
            }
            imc_standin::clearFaults();
            if (!threw) {
                failure = "flush whose delivery failed did not throw std::runtime_error";
                break;
            }
            model.write(std::string(1, '\0'));
            expected.push_back({isError, model.content, origin, line});
            break;
        }
        }
    }
    if (!failure.empty())
        return failure;

    std::vector<Handed> handed;
    for (Call const& call : imc_standin::calls())
        if (call.operation == Operation::Trace || call.operation == Operation::Error)
            handed.push_back({call.operation == Operation::Error, call.text, call.origin, call.number});
    imc_standin::clearCalls();
    if (handed.size() != expected.size())
        return std::to_string(handed.size()) + " texts handed over, model " + std::to_string(expected.size());
    for (std::size_t n = 0; n < handed.size(); ++n) {
        Handed const& got = handed[n];
        Handed const& want = expected[n];
        if (got.isError != want.isError || got.text != want.text || got.origin != want.origin ||
            got.line != want.line)
            return "text " + std::to_string(n + 1) + ": " + (got.isError ? "error " : "trace ") + quoted(got.text) +
                   " " + quoted(got.origin) + ":" + std::to_string(got.line) + ", model " +
                   (want.isError ? "error " : "trace ") + quoted(want.text) + " " + quoted(want.origin) + ":" +
                   std::to_string(want.line);
    }
    return "";
}

std::string checkTarget(std::string const& target, std::uint8_t const* data, std::size_t size)
{
    if (target == "command")
        return checkCommand(data, size);
    if (target == "version")
        return checkVersion(data, size);
    if (target == "hexadump")
        return checkHexaDump(data, size);
    if (target == "percent")
        return checkPercentEscaping(data, size);
    if (target == "imc_sink")
        return checkImcSink(data, size);
    return "no target " + target;
}

}  // namespace dbg_fuzz

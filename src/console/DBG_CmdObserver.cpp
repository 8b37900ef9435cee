#include "DBG_CmdObserver.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"
#include "DBG_Version.h"
#include "DBG_WholeTrace.h"

namespace {

char const helpText[] =
    "key DBG:\n"
    "\tDBG help : display this specific help\n"
    "\tDBG out [std | imc | file <name>]\n"
    "\t\tnone : get the current output mode\n"
    "\t\tstd  : debug traces send to standard output\n"
    "\t\timc  : debug traces send to imc (debug module)\n"
    "\t\tfile <name> : debug traces send to file <name>\n"
    "\tDBG stop : stop the sip gw (like Ctrl-C)\n"
    "\tDBG read : read configuration\n"
    "\tDBG version : return the version number\n"
    "\tDBG memchk 0|1 : unset/set memory check\n"
    "\tDBG memtrc 0|1 : unset/set memory trace\n";

constexpr std::uint32_t readConfigurationRequest = 600;
constexpr socklen_t socketAddressLength = 110;

bool contains(std::string const& line, char const* word)
{
    return line.find(word) != std::string::npos;
}

// "Debug Output set to <sink>\n", after selecting the sink the option words
// name: "std" wins over "imc", which wins over "file <name>".
std::string selectOutput(std::string const& line)
{
    DBG_OutManager* outManager = DBG_OutManager::instance();
    std::string::size_type const file = line.find("file ");
    if (contains(line, "std"))
        outManager->setConsoleOutput();
    else if (contains(line, "imc"))
        outManager->setImcOutput();
    else if (file != std::string::npos)
        outManager->setFileOutput(line.substr(file + 5));
    return "Debug Output set to " + dbg_output::outputName(*DBG_OutManager::instance()) + "\n";
}

std::string versionAnswer()
{
    DBG_Version const version;
    return "Version is " + (version.m_voipVersion.empty() ? std::string("unknown") : version.m_voipVersion) + "\n";
}

// /tmp/ + separator + pid + .key, composed as the gateway composes it (the
// doubled slash is its own and is kept).
sockaddr_un keyAddress(char const* separator)
{
    // With its mode: the default constructor is libstdc++ 9's.
    std::ostringstream path(std::ios::out);
    path.imbue(std::locale::classic());  // the pid in plain decimal, whatever the module's locale
    path << "/tmp/" << separator << getpid() << ".key" << '\0';
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    // Bounded by the whole sun_path on purpose: the address is passed with
    // the full structure's length, so it needs no terminator of its own.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstringop-truncation"
#endif
    std::strncpy(address.sun_path, path.str().c_str(), sizeof address.sun_path);
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
    return address;
}

void reportSocketFailure()
{
    // errno in decimal, whatever base a module left std::cout in, and read
    // before anything is written. The missing closing parenthesis is the
    // gateway's own message.
    std::string const error = std::to_string(errno);
    std::cout << "VELTA : cannot create debug socket (" << error << std::endl;
}

}  // namespace

DBG_CmdObserver::DBG_CmdObserver(IMC_Manager* manager) : pImcManager(manager)
{
    pImcManager->registration(this, "DBG");
    try {
        pImcManager->registration(this, "help");
    } catch (...) {
        // The observer is not made: the manager must not keep it for "DBG".
        // Should that release fail too, the caller is still to see why the
        // registration failed. Any standard exception of the release is held
        // back (a runtime_error, a logic_error, a bad_alloc...), and only a
        // standard one: a cancellation of the thread cannot be caught inside
        // this handler (the runtime would terminate), so it passes on, and
        // so does anything else of no standard type.
        try {
            pImcManager->unregistration(this, "DBG");
        } catch (std::exception const&) {
        }
        throw;
    }
}

namespace {
// A destructor cannot pass the manager's failure on; the second key is
// still released.
void unregisterQuietly(IMC_Manager* manager, IMC_CommandObserver* observer, char const* key)
{
    try {
        manager->unregistration(observer, key);
    } catch (std::runtime_error const&) {
    }
}
}  // namespace

DBG_CmdObserver::~DBG_CmdObserver()
{
    unregisterQuietly(pImcManager, this, "DBG");
    unregisterQuietly(pImcManager, this, "help");
}

void DBG_CmdObserver::command(std::string const& line, int)
{
    std::string answer;
    if (contains(line, "DBG memchk") || contains(line, "DBG memtrc")) {
        answer = "Binary is not instrumented\n";
    } else if (contains(line, "DBG out")) {
        answer = selectOutput(line);
    } else if (contains(line, "DBG stop")) {
        answer = "Stoping SIP gateway ...\n";
        stopCommand();
    } else if (contains(line, "DBG read")) {
        answer = "Read configuration\n";
        startCommand();
    } else if (contains(line, "DBG version")) {
        answer = versionAnswer();
    } else {
        answer = helpText;
    }
    pImcManager->answerCommand(answer);
}

void DBG_CmdObserver::startCommand()
{
    imc_msg request;
    clearImcRecord(request);
    setImcRecordCode(request, readConfigurationRequest);
    setImcRecordSender(request, imcIdentifier(requireImcManager(imcLibraryModule)));
    try {
        pImcManager->post(request);
    } catch (std::runtime_error const&) {
        std::cout << "Start Command Failed" << std::endl;
        IMC_Manager::coreDumpExit(IMC_Manager::ExitCause(0));
    }
}

void DBG_CmdObserver::stopCommand()
{
    int const descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor == -1) {
        reportSocketFailure();
        return;
    }
    sockaddr_un const own = keyAddress("/dbg");
    if (bind(descriptor, reinterpret_cast<sockaddr const*>(&own), socketAddressLength) == -1) {
        close(descriptor);
        reportSocketFailure();
        return;
    }
    sockaddr_un const destination = keyAddress("/");
    std::cout << "VELTA : processing manual shutdown..." << std::endl;
    char const request = 'q';
    sendto(descriptor, &request, 1, 0, reinterpret_cast<sockaddr const*>(&destination), socketAddressLength);
    close(descriptor);
}

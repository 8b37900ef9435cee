// The library's command handler: registered with the IMC manager under the
// keys "DBG" and "help" for its whole life, it interprets those command
// lines and answers each exactly once through IMC_Manager::answerCommand.
#ifndef DBG_CMDOBSERVER_H
#define DBG_CMDOBSERVER_H

#include <string>

#include "DBG_Export.h"
#include "IMC_CommandObserver.h"

class IMC_Manager;

class DBG_EXPORT DBG_CmdObserver : public IMC_CommandObserver {
public:
    explicit DBG_CmdObserver(IMC_Manager* manager);
    virtual ~DBG_CmdObserver();
    virtual void command(std::string const& line, int source);

    // Posts request 600 (read the configuration again) to the IMC manager.
    void startCommand();
    // Sends "q" to the gateway's shutdown listener /tmp//<pid>.key.
    void stopCommand();

    IMC_Manager* pImcManager;  // not owned
};

#endif

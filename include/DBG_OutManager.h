// The process-wide front of the trace output: forwards insertions and
// flushes to the one sink it owns, and switches that sink on command.
// Building it (first instance()) also registers the DBG commands.
// Every operation may be called from any thread: one lock inside
// serialises the sinks. desinstance() is the host's, once the threads that
// trace have stopped.
#ifndef DBG_OUTMANAGER_H
#define DBG_OUTMANAGER_H

#include <string>

#include "DBG_Export.h"
#include "VCOM_Types.h"

class DBG_Output;
class DBG_CmdObserver;

class DBG_EXPORT DBG_OutManager {
public:
    static DBG_OutManager* instance();
    static void desinstance();  // for the host's shutdown only

    // Each destroys the current sink before it builds the next.
    void setConsoleOutput();
    void setFileOutput(std::string const& name);
    void setImcOutput();

    // The virtual slot order below is the binary interface modules are
    // compiled against: never reorder, insert or remove. There is
    // deliberately no named insertion for VCOM_OpeTyp, VCOM_Reason or
    // VCOM_UAgent (see below).
    virtual ~DBG_OutManager();
    virtual DBG_OutManager& operator<<(std::string const& text);
    virtual DBG_OutManager& operator<<(int number);
    virtual DBG_OutManager& operator<<(unsigned char character);
    virtual DBG_OutManager& operator<<(VCOM_Codec value);
    virtual DBG_OutManager& operator<<(VCOM_Direction value);
    virtual DBG_OutManager& operator<<(VCOM_Sin value);
    virtual DBG_OutManager& operator<<(VCOM_Ulaw value);
    virtual DBG_OutManager& operator<<(VCOM_HangUpSource value);
    virtual DBG_OutManager& operator<<(VCOM_Cause value);
    virtual DBG_OutManager& operator<<(VCOM_Address_Plan value);
    virtual DBG_OutManager& operator<<(VCOM_Address_Type value);
    virtual DBG_OutManager& operator<<(VCOM_Address_Presentation value);
    virtual void flush(bool isError, std::string origin, int line);

    // The manager has no name for these: the number goes in, through
    // operator<<(int), as modules have always had it, and the compiler
    // warns that a sink would write the name. Inline and not virtual,
    // they add neither a slot nor a symbol.
    __attribute__((deprecated("the output manager has no name for a VCOM_OpeTyp: it writes the number (a sink writes the name)")))
    DBG_OutManager& operator<<(VCOM_OpeTyp value) { return *this << static_cast<int>(value); }
    __attribute__((deprecated("the output manager has no name for a VCOM_Reason: it writes the number (a sink writes the name)")))
    DBG_OutManager& operator<<(VCOM_Reason value) { return *this << static_cast<int>(value); }
    __attribute__((deprecated("the output manager has no name for a VCOM_UAgent: it writes the number (a sink writes the name)")))
    DBG_OutManager& operator<<(VCOM_UAgent value) { return *this << static_cast<int>(value); }

    DBG_Output* pOutput;             // current sink, owned, never null
    DBG_CmdObserver* pCmdObserver;   // owned; null without an IMC manager

private:
    DBG_OutManager();
    DBG_OutManager(DBG_OutManager const&);             // not copyable: never defined
    DBG_OutManager& operator=(DBG_OutManager const&);  // not assignable: never defined
    template <typename MakeSink> void replaceOutput(MakeSink makeSink);

    static DBG_OutManager* pOutManager;
};

#endif

// The trace sink interface, and the console sink: an object of this class
// writes every insertion straight to std::cout. Also home of the telephony
// name tables and of hexaDump.
#ifndef DBG_OUTPUT_H
#define DBG_OUTPUT_H

#include <string>

#include "DBG_Export.h"
#include "VCOM_Types.h"

// One entry of a table searched by value; an empty text ends the table.
struct DBG_CauseStr {
    VCOM_Cause value;
    std::string text;
};

struct DBG_FramingStr {
    int value;
    std::string text;
};

class DBG_EXPORT DBG_Output {
public:
    // The virtual slot order below is the binary interface modules are
    // compiled against: never reorder, insert or remove.
    virtual ~DBG_Output();
    virtual operator std::string const() const;  // display name: "console"
    virtual DBG_Output& operator<<(std::string const& text);
    virtual DBG_Output& operator<<(int number);
    virtual DBG_Output& operator<<(unsigned char character);
    virtual DBG_Output& operator<<(VCOM_Codec value);
    virtual DBG_Output& operator<<(VCOM_Direction value);
    virtual DBG_Output& operator<<(VCOM_Sin value);
    virtual DBG_Output& operator<<(VCOM_Ulaw value);
    virtual DBG_Output& operator<<(VCOM_HangUpSource value);
    virtual DBG_Output& operator<<(VCOM_Cause value);
    virtual DBG_Output& operator<<(VCOM_OpeTyp value);
    virtual DBG_Output& operator<<(VCOM_Reason value);
    virtual DBG_Output& operator<<(VCOM_Address_Plan value);
    virtual DBG_Output& operator<<(VCOM_Address_Type value);
    virtual DBG_Output& operator<<(VCOM_Address_Presentation value);
    virtual DBG_Output& operator<<(VCOM_UAgent value);
    // Ends one trace; the console ignores it (no line end, no flush).
    virtual void flush(bool isError, std::string origin, int line);

    // " %02X" per byte, a line feed after every 16th, an extra blank after
    // every other 8th: 3 * length + length / 8 characters.
    static std::string hexaDump(unsigned char const* data, unsigned int length);

    // Name tables, indexed by the enumeration's value, and their bounds
    // (element counts). The bounds are writable; the console sink and the
    // output manager read them at every use.
    static std::string codecToStr[10];
    static int codecToStrMAX;
    static std::string directionToStr[3];
    static int directionToStrMAX;
    static std::string addressPlanToStr[7];
    static int addressPlanToStrMAX;
    static std::string addressPresentationToStr[4];
    static int addressPresentationToStrMAX;
    static std::string addressTypeToStr[7];
    static int addressTypeToStrMAX;
    static std::string sinToStr[4];
    static int sinToStrMAX;
    static std::string ulawToStr[3];
    static int ulawToStrMAX;
    static std::string hangupSourceToStr[3];
    static int hangupSourceToStrMAX;
    static std::string statusToStr[9];
    static int statusToStrMAX;
    static DBG_CauseStr causeToStr[51];
    static DBG_FramingStr framingToStr[17];
    static std::string opeTypToStr[8];
    static int opeTypToStrMAX;
    static std::string reasonToStr[6];
    static int reasonToStrMAX;
    static std::string uagentToStr[2];  // no bound: users bound it by 2
};

#endif

// Everything the library assumes of the maker's IMC interface beyond the
// operations it calls. The maker's headers name and type the manager's
// members and the message record's fields as they please: what the library
// relies on is their bytes, read and written here by offset, and the two
// members it must name, named here and nowhere else. Building against the
// maker's headers means adapting this file, and no other.
#ifndef DBG_IMCACCESS_H
#define DBG_IMCACCESS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "IMC_Manager.h"
#include "imc_msg.h"

// The module number under which the library asks for the manager: what it
// selects is the manager's business, the library only passes it.
constexpr unsigned char imcLibraryModule = 255;
// The number the console passes with each line it hands on, likewise
// interpreted by the manager alone.
constexpr unsigned char imcConsoleModule = 15;

// The maker's manager may answer null instead of throwing when there is
// none; both mean the same here, so a null answer becomes the
// std::runtime_error every caller already handles.
inline IMC_Manager& requireImcManager(unsigned char module)
{
    IMC_Manager* manager = IMC_Manager::instance(module);
    // From a std::string: the constructor from a C string is libstdc++ 5's,
    // which an older board does not have.
    if (!manager)
        throw std::runtime_error(std::string("no Manager"));
    return *manager;
}

// The manager's identifier is the first byte of the manager object.
inline unsigned char imcIdentifier(IMC_Manager const& manager)
{
    return *reinterpret_cast<unsigned char const*>(&manager);
}

// The one-byte flag the console sets before each line it hands on.
inline void markConsoleLine(IMC_Manager& manager)
{
    manager.consoleFlag = 1;
}

// The integer member the logger designates: the one that follows the
// manager's first two 32-bit words.
inline std::int32_t* imcDesignatedValue(IMC_Manager& manager)
{
    return &manager.traceLevel;
}

// The request record: 2060 bytes, zero but for the sender's identifier byte
// at offset 2 and the 32-bit request code at offset 8, in the processor's
// own byte order.
constexpr std::size_t imcRecordSize = 2060;
constexpr std::size_t imcRecordSenderOffset = 2;
constexpr std::size_t imcRecordCodeOffset = 8;
static_assert(sizeof(imc_msg) == imcRecordSize, "the IMC message record is 2060 bytes");

inline unsigned char* imcRecordBytes(imc_msg& record)
{
    return reinterpret_cast<unsigned char*>(&record);
}

inline void clearImcRecord(imc_msg& record)
{
    std::memset(imcRecordBytes(record), 0, imcRecordSize);
}

inline void setImcRecordCode(imc_msg& record, std::uint32_t code)
{
    std::memcpy(imcRecordBytes(record) + imcRecordCodeOffset, &code, sizeof code);
}

inline void setImcRecordSender(imc_msg& record, unsigned char identifier)
{
    imcRecordBytes(record)[imcRecordSenderOffset] = identifier;
}

#endif

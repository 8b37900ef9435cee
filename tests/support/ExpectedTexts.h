// What the console and the DBG commands print, byte for byte: the banner
// with its prompt, and the help text. Shared by the tests and the fuzz
// targets.
#ifndef DBG_EXPECTED_TEXTS_H
#define DBG_EXPECTED_TEXTS_H

inline constexpr char expectedBanner[] =
    "+==========================+\n"
    "|    SIP trunk Gateway     |\n"
    "+--------------------------+\n"
    "|   Command line Mode:     |\n"
    "|    - help to start       |\n"
    "|    - exit to stop        |\n"
    "+==========================+\n"
    ">\n";

inline constexpr char expectedHelpText[] =
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

#endif

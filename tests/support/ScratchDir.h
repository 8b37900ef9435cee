// A private directory below $TMPDIR (or /tmp), removed with all it holds
// when the object goes, whatever the test did meanwhile.
#ifndef DBG_SCRATCH_DIR_H
#define DBG_SCRATCH_DIR_H

#include <memory>
#include <string>

#include "RemoveTree.h"

class ScratchDir {
public:
    // Throws std::runtime_error when the directory cannot be made.
    ScratchDir();
    ~ScratchDir();
    ScratchDir(ScratchDir const&) = delete;
    ScratchDir& operator=(ScratchDir const&) = delete;

    std::string const& path() const { return m_path; }
    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// A scratch directory whose path holds neither "std" nor "imc" nor "exit":
// either of the first two anywhere in "DBG out file <path>" would select
// another sink, and a console line holding "exit" stops the host.
std::unique_ptr<ScratchDir> plainScratchDir();

// Copies the program at `from` to `to` with mode 0755, for running it as a
// user who cannot reach the build tree. Returns "" or what went wrong.
std::string copyProgram(std::string const& from, std::string const& to);

#endif

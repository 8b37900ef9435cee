// Plugin for qemu's user-mode emulator: counts the guest instructions
// executed between a call of dbg_count_begin() and the next call of
// dbg_count_end(), two empty functions of the counting drivers found by their
// symbols, and writes one line "instructions N" per pair to qemu's log
// (qemu-ppc -plugin <this> -d plugin -D <file>). The drivers run one thread.
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

#include <qemu-plugin.h>

QEMU_PLUGIN_EXPORT int qemu_plugin_version = QEMU_PLUGIN_VERSION;

static uint64_t executed;  // every instruction, added as its block starts
static uint64_t atBegin;
static bool counting;

static void begin(unsigned int vcpu, void* unused)
{
    (void)vcpu, (void)unused;
    atBegin = executed;
    counting = true;
}

static void end(unsigned int vcpu, void* unused)
{
    (void)vcpu, (void)unused;
    if (!counting)
        return;  // a marker of several instructions calls back for each
    counting = false;
    char line[48];
    snprintf(line, sizeof line, "instructions %" PRIu64 "\n", executed - atBegin);
    qemu_plugin_outs(line);
}

static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb)
{
    (void)id;
    size_t const count = qemu_plugin_tb_n_insns(tb);
    qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed, count);
    for (size_t i = 0; i < count; ++i) {
        struct qemu_plugin_insn* insn = qemu_plugin_tb_get_insn(tb, i);
        char const* symbol = qemu_plugin_insn_symbol(insn);
        if (symbol && strcmp(symbol, "dbg_count_begin") == 0)
            qemu_plugin_register_vcpu_insn_exec_cb(insn, begin, QEMU_PLUGIN_CB_NO_REGS, NULL);
        else if (symbol && strcmp(symbol, "dbg_count_end") == 0)
            qemu_plugin_register_vcpu_insn_exec_cb(insn, end, QEMU_PLUGIN_CB_NO_REGS, NULL);
    }
}

QEMU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, qemu_info_t const* info, int argc,
                                           char** argv)
{
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    return 0;
}

/* A qemu TCG plugin that counts executed guest instructions and prints the total at exit.
 * Debian's qemu-user accepts -plugin and exports the plugin API but ships no plugins and
 * no header, so the few declarations used are written out here (plugin API version 1).
 *   cc -shared -fPIC -O2 insn_count.c -o libinsn_count.so
 *   qemu-arm -plugin ./libinsn_count.so -d plugin PROGRAM ...   (total on stderr)
 * With `-plugin ./libinsn_count.so,blocks=on` it also prints "block ADDRESS COUNT" for
 * every translated block, for scripts/arm_profile.py to charge to functions. */
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;

enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* userdata);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, enum qemu_plugin_op op,
                                              void* ptr, uint64_t imm);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void* userdata);
void qemu_plugin_outs(const char* string);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

/* One guest thread: plain counters are enough. */
static uint64_t insns;

/* Per translated block, when asked for: its address and the instructions it ran. */
struct block {
  uint64_t vaddr;
  uint64_t insns;
};
static struct block** blocks;
static size_t block_count, block_room;

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  const size_t n = qemu_plugin_tb_n_insns(tb);
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &insns, n);
  if (blocks == NULL) return;
  if (block_count == block_room) {
    block_room *= 2;
    blocks = realloc(blocks, block_room * sizeof *blocks);
    if (blocks == NULL) abort();
  }
  struct block* b = calloc(1, sizeof *b);
  if (b == NULL) abort();
  b->vaddr = qemu_plugin_tb_vaddr(tb);
  blocks[block_count++] = b;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &b->insns, n);
}

static void at_exit_report(qemu_plugin_id_t id, void* userdata) {
  (void)id;
  (void)userdata;
  char line[64];
  snprintf(line, sizeof line, "insns: %" PRIu64 "\n", insns);
  qemu_plugin_outs(line);
  for (size_t i = 0; i < block_count; ++i) {
    if (blocks[i]->insns == 0) continue;
    snprintf(line, sizeof line, "block %" PRIx64 " %" PRIu64 "\n", blocks[i]->vaddr,
             blocks[i]->insns);
    qemu_plugin_outs(line);
  }
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const qemu_info_t* info, int argc,
                                                               char** argv) {
  (void)info;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "blocks", 6) == 0) {
      block_room = 4096;
      blocks = malloc(block_room * sizeof *blocks);
      if (blocks == NULL) return -1;
    }
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
  qemu_plugin_register_atexit_cb(id, at_exit_report, NULL);
  return 0;
}

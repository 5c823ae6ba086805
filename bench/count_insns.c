/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */

/* A plugin for qemu-user (package qemu-user, not the static build) that counts the instructions a program executes:
 *
 *   gcc -shared -fPIC -O2 -o count_insns.so count_insns.c
 *   qemu-aarch64 -plugin ./count_insns.so -d plugin PROGRAM ARGUMENTS
 *
 * Debian does not package qemu's header; what is used of its plugin interface, version 1, is declared here. */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define EXPORTED __attribute__((visibility("default")))

struct tb; /* a block of instructions that qemu translates as one */
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id, void (*translated)(uint64_t, struct tb*));
void qemu_plugin_register_atexit_cb(uint64_t id, void (*finished)(uint64_t, void*), void* user);
size_t qemu_plugin_tb_n_insns(const struct tb* tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct tb* tb, int add_u64, void* counter, uint64_t summand);
void qemu_plugin_outs(const char* text);

EXPORTED int qemu_plugin_version = 1;
EXPORTED int qemu_plugin_install(uint64_t id, const void* info, int argc, char** argv);

static uint64_t count;

static void Translated(uint64_t id, struct tb* tb) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(tb, 0, &count, qemu_plugin_tb_n_insns(tb));
}

static void Finished(uint64_t id, void* user) {
    char text[64];
    (void)id, (void)user;
    snprintf(text, sizeof text, "instructions: %" PRIu64 "\n", count);
    qemu_plugin_outs(text);
}

int qemu_plugin_install(uint64_t id, const void* info, int argc, char** argv) {
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
    qemu_plugin_register_atexit_cb(id, Finished, NULL);
    return 0;
}

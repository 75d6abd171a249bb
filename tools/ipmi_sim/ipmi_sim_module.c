/*
 * ipmi_sim_module.c - loaded by the IPMI simulator: answers the identify command of the controller, which no simulator
 * knows, and writes each request to the file that the configuration names, a line of hexadecimal bytes.
 */
#include <OpenIPMI/mcserv.h>
#include <OpenIPMI/serv.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { NET_FUNCTION = 0x30, IDENTIFY = 0xD5 };

int ipmi_sim_module_print_version(sys_data_t *sys, char *options);
int ipmi_sim_module_init(sys_data_t *sys, const char *options);

static void record(lmc_data_t *mc, msg_t *message, unsigned char *answer, unsigned int *answer_length, void *path) {
    (void)mc;
    FILE *file = fopen(path, "a");
    int written = file != NULL && fprintf(file, "%02x %02x:", message->netfn, message->cmd) > 0;
    for (unsigned i = 0; written && i < message->len; ++i) {
        written = fprintf(file, " %02x", message->data[i]) > 0;
    }
    written = written && fputc('\n', file) != EOF;
    if (file != NULL && fclose(file) != 0) {
        written = 0;
    }
    answer[0] = written ? 0 : 0xFF;
    *answer_length = 1;
}

int ipmi_sim_module_print_version(sys_data_t *sys, char *options) {
    (void)sys;
    (void)options;
    return 0;
}

int ipmi_sim_module_init(sys_data_t *sys, const char *options) {
    (void)sys;
    char *path = strdup(options); /* for as long as the simulator lives */
    return path == NULL ? ENOMEM : ipmi_emu_register_cmd_handler(NET_FUNCTION, IDENTIFY, record, path);
}

// The WiFi link: the HID daemon owns the socket and relays its bytes through
// named FIFOs; this module reads /dev/fifo_rx and writes /dev/fifo_tx.
#define LOG_TAG "ATCMD_MANAGE"
#include "atcmdprocess.h"

int g_fifo_rx_fd = -1;
int g_fifo_tx_fd = -1;
int epfd_socket = 0;

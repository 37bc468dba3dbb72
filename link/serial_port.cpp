// Serial links to the accessory: the UART and the USB ACM virtual UART.
#include "atcmdprocess.h"

int g_uart_fd = -1;
int g_vuart_fd = -1;

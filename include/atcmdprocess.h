/*
 * atcmdprocess: the hardware module that carries the AT-command protocol
 * between the phone's HIDL service and the kavren accessory.
 *
 * This is the one header a client compiles against. Everything declared here
 * is exported from atcmdprocess.default.so with C linkage under exactly this
 * name; nothing else in the library is visible.
 */
#ifndef ATCMDPROCESS_H
#define ATCMDPROCESS_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include <hardware/hardware.h>

#define ATCMD_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Command record and queues                                                 */
/* ------------------------------------------------------------------------ */

/* Endpoints in AtCmder_t.source / .dest. */
#define ATCMD_EP_MPHONE 1 /* the peer reached over the WiFi channel */
#define ATCMD_EP_CLIENT 2 /* the local client of this module */
#define ATCMD_EP_MCU 3    /* the accessory's MCU */

/* Line kinds in AtCmder_t.type. */
#define ATCMD_TYPE_ACTION 1
#define ATCMD_TYPE_SET 2
#define ATCMD_TYPE_QUERY 3
#define ATCMD_TYPE_RESPONSE 4
#define ATCMD_TYPE_UNSOLICITED 5

/* Every text buffer a record's data points at on dequeue holds this much. */
#define ATCMD_TEXT_MAX 160

/* Queue results. */
#define ATCMD_Q_OK 0
#define ATCMD_Q_NULL 6
#define ATCMD_Q_NOMEM 7
#define ATCMD_Q_NONE 9

/* One command or response in flight. 32 bytes on LP64 and on 32-bit ARM. */
typedef struct AtCmder {
    uint8_t type;
    uint8_t source;
    uint8_t dest;
    uint8_t flag;
    uint8_t resendtimes;
    uint8_t cmd_id;
    uint16_t seq_num;
    int64_t tv_sec;
    int64_t tv_usec;
    char *data; /* NUL-terminated frame text, owned by whoever filled the record */
} AtCmder_t;

/* A queue node owns a copy of the record and of its text. 208 bytes on LP64,
 * 200 on 32-bit ARM. */
typedef struct atcmder_node {
    AtCmder_t cmd; /* cmd.data points at text below */
    char text[ATCMD_TEXT_MAX];
    struct {
        struct atcmder_node *tqe_next;
        struct atcmder_node **tqe_prev;
    } link;
} atcmder_node_t;

/* Tail queue head: an empty head has tqh_first NULL and tqh_last == &tqh_first. */
typedef struct atcmder_queue {
    atcmder_node_t *tqh_first;
    atcmder_node_t **tqh_last;
} atcmder_queue_t;

ATCMD_API extern atcmder_queue_t Rx_head;
ATCMD_API extern atcmder_queue_t Tx_head;
ATCMD_API extern atcmder_queue_t Timeout_head;

/* List locks. Nested order, where both are needed: timeout queue, then transmit. */
ATCMD_API extern pthread_mutex_t g_rxqueue_mutex;
ATCMD_API extern pthread_mutex_t g_txqueue_mutex;
ATCMD_API extern pthread_mutex_t g_timeoutqueue_mutex;

/* Wake-up conditions and the locks their consumers wait with. */
ATCMD_API extern pthread_cond_t rxbuffer_notempty;
ATCMD_API extern pthread_cond_t txbuffer_notempty;
ATCMD_API extern pthread_cond_t timeoutbuffer_notempty;
ATCMD_API extern pthread_mutex_t rxbuffer_Mutex;
ATCMD_API extern pthread_mutex_t txbuffer_Mutex;
ATCMD_API extern pthread_mutex_t timeoutbuffer_Mutex;

ATCMD_API unsigned int atcmder_queue_init(atcmder_queue_t *head);
ATCMD_API unsigned int atcmder_enqueue(atcmder_queue_t *head, pthread_mutex_t *lock,
                                       const AtCmder_t *cmd);
ATCMD_API unsigned int atcmder_dequeue(atcmder_queue_t *head, pthread_mutex_t *lock,
                                       AtCmder_t *out);
ATCMD_API int atcmder_empty_queue(atcmder_queue_t *head, pthread_mutex_t *lock);
ATCMD_API unsigned int atcmder_queue_exit(atcmder_queue_t *head, pthread_mutex_t *lock);

/* ------------------------------------------------------------------------ */
/* Device object and client callback                                         */
/* ------------------------------------------------------------------------ */

#define ATCMDPROCESS_HARDWARE_MODULE_ID "atcmdprocess"

typedef struct usbdev_sts {
    int32_t usb_devinfo;   /* second value of the accessory's +USBSTATE; -1 unplugged */
    int32_t usb_connected; /* 1 while the ACM link is plugged, 0 after removal */
} usbdev_sts_t;

/* system_status_t.platform: which links carry the accessory's traffic. */
#define ATCMD_PLATFORM_VUART 1 /* USB ACM (virtual UART) or WiFi; WiFi daemon runs as server */
#define ATCMD_PLATFORM_UART 2  /* the UART or WiFi; WiFi daemon runs as client */

/* system_status_t.mode: the cast in progress. */
#define ATCMD_MODE_NONE (-1)
#define ATCMD_MODE_USB 0
#define ATCMD_MODE_WIFI 1

typedef struct system_status {
    int32_t platform;    /* 1: accessory on USB or WiFi; 2: on the UART or WiFi */
    int32_t mode;        /* cast mode: 0 USB, 1 WiFi, -1 none */
    int32_t wifi_status; /* 1 once a WiFi start was requested, 0 after tear-down */
    int32_t state;       /* phone state reported to the MCU: 1 IDLE, 2 ACTIVE */
    char ipaddr[16];     /* WiFi server address, dotted IPv4 */
    usbdev_sts_t usbdev_sts;
} system_status_t;

/* Message handed to the client's callback. It and its payload live on the
 * caller's stack: copy what you keep. */
typedef struct AT_CMD_CbMsg {
    uint16_t cmd_id;
    uint16_t seq_num;
    void *data;
} AT_CMD_CbMsg_t;

typedef void (*atcmd_notify_callback_t)(AT_CMD_CbMsg_t *msg);

typedef struct atcmdprocess_device {
    struct hw_device_t common; /* must stay first: the loader hands this out */
    system_status_t system_status;
    atcmd_notify_callback_t notify_callback;
    int (*set_notify_callback)(struct atcmdprocess_device *dev, atcmd_notify_callback_t cb);
    int (*cmd_from_hidl)(AtCmder_t *cmd);
    int (*wifi_init)(const char *ipaddr);
    int (*wifi_stchange)(int32_t state);
    int (*hiddemon_stchange)(const char *status);
    int (*amlogic_shake_hands)(void);
    uint64_t reserved[4];
} atcmdprocess_device_t;

ATCMD_API extern struct hw_module_t HMI;
ATCMD_API extern atcmdprocess_device_t *g_patcmd_dev;

ATCMD_API int atcmdprocess_open(const struct hw_module_t *module, const char *name,
                                struct hw_device_t **device);
ATCMD_API int atcmdprocess_close(struct hw_device_t *device);
ATCMD_API int set_notify_callback(atcmdprocess_device_t *dev, atcmd_notify_callback_t cb);
ATCMD_API int cmd_from_hidl(AtCmder_t *cmd);
ATCMD_API int atcmdprocess_wifi_init(const char *ipaddr);
ATCMD_API int atcmdprocess_wifi_stchange(int32_t state);
ATCMD_API int atcmdprocess_hiddemon_stchange(const char *status);
ATCMD_API int atcmdprocess_amlogic_shake_hands(void);

/* ------------------------------------------------------------------------ */
/* Service threads and signals                                               */
/* ------------------------------------------------------------------------ */

/* Thread handles: 0 while the thread does not run. */
ATCMD_API extern pthread_t g_Sigprocess_thread;
ATCMD_API extern pthread_t g_uartRx_thread;
ATCMD_API extern pthread_t g_VuartRx_thread;
ATCMD_API extern pthread_t g_Tx_thread;
ATCMD_API extern pthread_t g_dispatch_thread;
ATCMD_API extern pthread_t g_timeout_thread;
ATCMD_API extern pthread_t g_wifiRx_thread;
ATCMD_API extern pthread_t g_wifiHBeat_thread;

/* Start-up, called by the module's open: queues, the blocked service signals
 * (SIGUSR1, SIGUSR2, SIGURG, SIGVTALRM, taken only by the signal thread) and
 * the service threads. Returns 0, or 1 when a thread could not be started. */
ATCMD_API int atcmder_hal_open(void);
/* The signal thread: turns the service signals into link events (USB node
 * in, USB node out, WiFi up, hand-shake). */
ATCMD_API void *atcmder_sigProcess_thread(void *arg);

/* SIGALRM handler of the WiFi receive and heartbeat threads: ends the caller. */
ATCMD_API void thread_exit_handler(int sig);

/* Shut-down, called by the device's close: closes the links, empties the
 * queues and sends SIGKILL to the service threads, which ends the hosting
 * process whenever one of them runs. */
ATCMD_API int atcmder_hal_close(void);

/* ------------------------------------------------------------------------ */
/* Logging                                                                   */
/* ------------------------------------------------------------------------ */

ATCMD_API extern int32_t log_level;
ATCMD_API extern FILE *fd_logfile;
ATCMD_API extern char buf_timestamp[32];
ATCMD_API extern int64_t ts_base_sec;

ATCMD_API void log_file_init(const char *dir, const char *name);
ATCMD_API char *get_timestamp(void);
ATCMD_API void dump_atcmd_data(const AtCmder_t *cmd);

/* ------------------------------------------------------------------------ */
/* Serial links                                                              */
/* ------------------------------------------------------------------------ */

ATCMD_API extern int g_uart_fd;
ATCMD_API extern int g_vuart_fd;

ATCMD_API int UART_init(int *fd);
ATCMD_API int VUART_init(int *fd, int64_t acm);
ATCMD_API int UART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int VUART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int UART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int VUART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int UART_Send(int fd, const char *data, int len);
ATCMD_API int VUART_Send(int fd, const char *data, int len);

ATCMD_API void *atcmder_uartRx_thread(void *arg);
ATCMD_API void *atcmder_VuartRx_thread(void *arg);

/* ------------------------------------------------------------------------ */
/* WiFi channel and HID daemon                                               */
/* ------------------------------------------------------------------------ */

ATCMD_API extern int g_fifo_rx_fd;
ATCMD_API extern int g_fifo_tx_fd;
ATCMD_API extern int epfd_socket;
ATCMD_API extern uint64_t g_wifiHBeat_num;

ATCMD_API int Socket_Fifo_Init(void);
ATCMD_API void stop_wifi_channel(void);
ATCMD_API void *atcmder_wifiRx_thread(void *arg);
ATCMD_API int wifi_Chan_ReInit(void);
ATCMD_API void *atcmder_wifiHBeat_thread(void *arg);
ATCMD_API int stop_hiddemon(void);
ATCMD_API int Kill_hiddemon_byforce(void);

/* ------------------------------------------------------------------------ */
/* USB ACM hot-plug                                                          */
/* ------------------------------------------------------------------------ */

ATCMD_API extern int64_t g_dev_ACM;
ATCMD_API extern char g_dev_ACM_name[64];
ATCMD_API extern int fd_inotify_input;
ATCMD_API extern int epfd_hid_devs;
ATCMD_API extern pthread_t g_find_acmdev_thread;

ATCMD_API int dev_hotplug_init(void);
ATCMD_API int scan_acm_devices(void);
ATCMD_API int inotify_input_event(void);
ATCMD_API void *handler_acm_devs_epoll(void *arg);
ATCMD_API int dev_event_process(void);
ATCMD_API int64_t parse_dev_name(const char *name);
ATCMD_API int kavren_plugged(void);
ATCMD_API void notify_usbevent(void);

/* ------------------------------------------------------------------------ */
/* AT protocol                                                               */
/* ------------------------------------------------------------------------ */

/* Rows of AT_CMDS: the cmd_id of every record and of every callback
 * message. Rows are never reordered; each name is its row's name without
 * the '+'. */
enum atcmd_cmd_id {
    ATCMD_ID_REBOOT = 0,
    ATCMD_ID_UPGRADE = 1,
    ATCMD_ID_RECOVERY = 2,
    ATCMD_ID_SHUTDOWN = 3, /* also the client's shut-down request */
    ATCMD_ID_POWEROFF = 4,
    ATCMD_ID_RESET = 5,
    ATCMD_ID_STARTUP = 6,
    ATCMD_ID_BTMAC = 7,
    ATCMD_ID_BLEMAC = 8,
    ATCMD_ID_BAT = 9,
    ATCMD_ID_STATE = 10,
    ATCMD_ID_VER = 11,
    ATCMD_ID_HALL = 12,
    ATCMD_ID_SN = 13,
    ATCMD_ID_SID = 14,
    ATCMD_ID_TYPE = 15,
    ATCMD_ID_USBSTATE = 16, /* also USB hot-plug events: usb_connected, usb_devinfo */
    ATCMD_ID_SCREEN = 17,
    ATCMD_ID_WIFICON = 18, /* also the WiFi link state, a 64-bit value */
    ATCMD_ID_MICMODE = 19,
    ATCMD_ID_WIFI = 20,
    ATCMD_ID_BT = 21,
    ATCMD_ID_TIME = 22,
    ATCMD_ID_OK = 23,
    ATCMD_ID_ERROR = 24, /* also reply time-outs (-110) and a failed UART (-6) */
    ATCMD_ID_SLEEP = 25,
    ATCMD_ID_BATCG = 26,
    ATCMD_ID_BKL = 27,
    ATCMD_ID_MODE = 28,
    ATCMD_ID_ACC = 29,
    ATCMD_ID_LIGHT = 30,
    ATCMD_ID_HALLCG = 31,
    ATCMD_ID_TEST = 32,
    ATCMD_ID_HRM = 33,
    ATCMD_ID_DTR = 34,
    ATCMD_ID_PTEST = 35,
    ATCMD_ID_MMI1 = 36,
    ATCMD_ID_PT = 37,
    ATCMD_ID_WT = 38
};

#define ATCMD_NUM_CMDS 39

/* The states a "+STATE" line carries as a word, as numbers: in the STATE
 * message's payload and in send_stateToMPHONE's argument. INIT is only ever
 * read, never sent. */
enum atcmd_state {
    ATCMD_STATE_IDLE = 1,
    ATCMD_STATE_ACTIVE = 2,
    ATCMD_STATE_READY = 3,
    ATCMD_STATE_PWROFF = 4,
    ATCMD_STATE_UPDATE = 5,
    ATCMD_STATE_NOACK = 6,
    ATCMD_STATE_INIT = 7
};

/* What the module itself reports in a message of cmd_id ATCMD_ID_ERROR
 * (the accessory's own "+ERROR" numbers are other values). */
#define ATCMD_ERR_REPLY_TIMEOUT (-110) /* unanswered after two resends (-ETIMEDOUT) */
#define ATCMD_ERR_UART_DOWN (-6)       /* the UART could not be opened again (-ENXIO) */

/* What a message's data points at, by its cmd_id (data may be NULL). */
enum atcmd_payload_kind {
    ATCMD_PAYLOAD_NONE,      /* "+UPGRADE", "+RECOVERY", "+SHUTDOWN", rows without a parser */
    ATCMD_PAYLOAD_NUMBER,    /* one int64_t */
    ATCMD_PAYLOAD_LIST,      /* *count int32_t (battery 6, hall and acceleration 3,
                                temperature 2, state 1) */
    ATCMD_PAYLOAD_TEXT,      /* a NUL-terminated text */
    ATCMD_PAYLOAD_USB_EVENT, /* two int32_t: usb_connected, then usb_devinfo */
    ATCMD_PAYLOAD_ERROR      /* "+ERROR": a reply time-out (-110) or a failed UART (-6) as
                                an int32_t followed by a zero word, or the accessory's
                                "+ERROR" number as an int64_t; the first int32_t reads
                                right for both on a little-endian phone */
};

static inline enum atcmd_payload_kind atcmd_payload_kind_of(uint16_t cmd_id, size_t *count) {
    *count = 1;
    switch (cmd_id) {
    case ATCMD_ID_BAT:
    case ATCMD_ID_BATCG:
        *count = 6;
        return ATCMD_PAYLOAD_LIST;
    case ATCMD_ID_HALL:
    case ATCMD_ID_ACC:
    case ATCMD_ID_HALLCG:
        *count = 3;
        return ATCMD_PAYLOAD_LIST;
    case ATCMD_ID_HRM:
        *count = 2;
        return ATCMD_PAYLOAD_LIST;
    case ATCMD_ID_STATE: /* a state code */
        return ATCMD_PAYLOAD_LIST;
    case ATCMD_ID_USBSTATE:
        *count = 2;
        return ATCMD_PAYLOAD_USB_EVENT;
    case ATCMD_ID_ERROR:
        return ATCMD_PAYLOAD_ERROR;
    case ATCMD_ID_BTMAC: case ATCMD_ID_BLEMAC: case ATCMD_ID_VER: case ATCMD_ID_SN:
    case ATCMD_ID_SID: case ATCMD_ID_TYPE: case ATCMD_ID_DTR: case ATCMD_ID_MMI1: case ATCMD_ID_PT:
        return ATCMD_PAYLOAD_TEXT;
    case ATCMD_ID_REBOOT: case ATCMD_ID_POWEROFF: case ATCMD_ID_RESET: case ATCMD_ID_SCREEN:
    case ATCMD_ID_WIFICON: case ATCMD_ID_MICMODE: case ATCMD_ID_WIFI: case ATCMD_ID_BT:
    case ATCMD_ID_BKL: case ATCMD_ID_MODE: case ATCMD_ID_LIGHT: case ATCMD_ID_TEST:
        return ATCMD_PAYLOAD_NUMBER;
    default:
        *count = 0;
        return ATCMD_PAYLOAD_NONE;
    }
}

typedef unsigned int (*atcmd_parser_t)(AtCmder_t *cmd);

typedef struct at_cmd {
    const char *name;      /* as on the wire, always starting with '+' */
    atcmd_parser_t parser; /* NULL for rows that have none */
} at_cmd_t;

ATCMD_API extern const at_cmd_t AT_CMDS[ATCMD_NUM_CMDS];

ATCMD_API int findAtCmdIdx(const char *text, uint8_t *idx);
ATCMD_API int findResCmdIdx(const char *name, uint8_t *idx);
ATCMD_API int cmd_Parse_from_buffer(AtCmder_t *cmd, const char *buffer);

/* Field extraction; each takes the whole received line. */
ATCMD_API unsigned int getvalue_fromCmdString(const char *line, int64_t *value);
ATCMD_API unsigned int getstr_fromCmdString(const char *line, char *out, size_t out_size);
ATCMD_API unsigned int getstate_fromCmdString(const char *line, int32_t *state);
ATCMD_API unsigned int getBatinfo_fromCmdString(const char *line, int32_t out[6]);
ATCMD_API unsigned int getTmpinfo_fromCmdString(const char *line, int32_t out[2]);
ATCMD_API unsigned int getUsbDevinfo_fromCmdString(const char *line, int32_t out[2]);
ATCMD_API unsigned int getHALLinfo_fromCmdString(const char *line, int32_t out[3]);
ATCMD_API unsigned int getACCinfo_fromCmdString(const char *line, int32_t out[3]);
ATCMD_API unsigned int getVerInfo_fromCmdString(const char *line, char block[256]);

/* Transmit path: result codes of atcmder_Tx_process. */
#define ATCMD_TX_VUART_CLOSED 5
#define ATCMD_TX_FIFO_WRITE_FAILED 14
#define ATCMD_TX_UART_CLOSED 15
#define ATCMD_TX_FIFO_CLOSED 16
/* The link went away, or took nothing for a second, while the record
 * waited to be written: the record was dropped (and logged). */
#define ATCMD_TX_DROPPED 17

ATCMD_API void *atcmder_Tx_thread(void *arg);
ATCMD_API int atcmder_Tx_process(AtCmder_t *cmd);

ATCMD_API void atcmder_post_parse_process(AtCmder_t *cmd);
ATCMD_API void *atcmder_dispatch_thread(void *arg);
ATCMD_API int atcmder_dispatch(AtCmder_t *cmd);

ATCMD_API extern uint64_t g_timeout;
ATCMD_API void Init_TimeoutPara(void);
ATCMD_API void *atcmder_Timeout_thread(void *arg);
ATCMD_API int rmTimeoutItem(AtCmder_t *reply);
ATCMD_API void notifytimeout(AtCmder_t *cmd);
ATCMD_API void notifyUartNotWork(void);

/* Response parsers, one per row of AT_CMDS but "+STARTUP" and "+WIFICON".
 * Each takes the received record (data: the whole line) and returns 0, or 3
 * when REBOOT_parser or ERROR_parser find no value. */
ATCMD_API unsigned int REBOOT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int UPGRADE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int RECOVERY_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SHUTDOWN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int POWEROFF_parser(AtCmder_t *cmd);
ATCMD_API unsigned int RESET_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BTMAC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BLEMAC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BAT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int STATE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int VER_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HALL_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SID_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TYPE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int USBSTATE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SCREEN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MICMODE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int WIFI_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TIME_parser(AtCmder_t *cmd);
ATCMD_API unsigned int OK_parser(AtCmder_t *cmd);
ATCMD_API unsigned int ERROR_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SLEEP_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BATCG_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BKL_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MODE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int ACC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int LIGHT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HALLCG_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TEST_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HRM_TEMP_parser(AtCmder_t *cmd);
ATCMD_API unsigned int DTR_parser(AtCmder_t *cmd);
ATCMD_API unsigned int PTEST_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MMI1_parser(AtCmder_t *cmd);
ATCMD_API unsigned int PT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int WT_parser(AtCmder_t *cmd);
/* Beside the table; no row leads to them. */
ATCMD_API unsigned int INFO_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SENSOR_parser(AtCmder_t *cmd);

/* ------------------------------------------------------------------------ */
/* Accessory information record and queries                                  */
/* ------------------------------------------------------------------------ */

/* The accessory's identity as its replies gave it; 388 bytes. Text fields are
 * NUL-terminated within their width. The seven version items form one
 * 256-byte block starting at ver_item0. */
typedef struct kavren_devInfo {
    char sn[32];
    char sid[32];
    char type[32]; /* model code, e.g. "KM5816W" */
    char ver_item0[32];
    char ver_item1[32];
    char ver_item2[32];
    char ver_item3[64]; /* also the version the phone reports as "+VER=WIFI:" */
    char ver_item4[32];
    char ver_item5[32];
    char ver_item6[32];
    char mac[32];  /* from "+BTMAC" or "+BLEMAC" */
    int32_t model; /* 0 until "+TYPE"; 1 with WiFi, 2 without, -1 unknown */
} kavren_devInfo_t;

ATCMD_API extern kavren_devInfo_t g_kavren_devInfo;
/* Model codes that TYPE_parser compares "+TYPE" replies with. */
ATCMD_API extern char type_with_wifi[32];
ATCMD_API extern char type_without_wifi[32];

/* Query senders: each queues one query for the accessory and returns the
 * result of waking the transmit thread. The reply reaches the client. */
ATCMD_API int get_kavren_ver(void);
ATCMD_API int get_kavren_type(void);
ATCMD_API int get_kavren_screensts(void);
ATCMD_API int get_kavren_BATINFO(void);
ATCMD_API int get_kavren_sid(void);
ATCMD_API int get_kavren_sn(void);
ATCMD_API int get_kavren_state(void);
ATCMD_API int get_kavren_usbstate(void);
ATCMD_API int get_remote_bt_mac(void);
ATCMD_API int get_kavren_micmode(void);
ATCMD_API int get_kavren_castmode(void);
/* The whole set, in order, 10 ms apart: what the phone asks a new accessory. */
ATCMD_API void get_kavren_info(void);

/* ------------------------------------------------------------------------ */
/* Reports to the accessory                                                  */
/* ------------------------------------------------------------------------ */

/* The property send_bt_mac reads the phone's Bluetooth address from. */
ATCMD_API extern const char *bt_mac_prop;

ATCMD_API int send_stateToMCU(void);
ATCMD_API int send_stateToMPHONE(int32_t state);
/* Both wait up to about 2 s for their property. */
ATCMD_API int send_bt_mac(void);
ATCMD_API int send_amlogic_ver(void);
ATCMD_API void notify_wifi_state(int64_t state);

/* ------------------------------------------------------------------------ */
/* Factory test traffic                                                      */
/* ------------------------------------------------------------------------ */

/* Queues "AT+PTEST=<pattern>#<index>&2" on platform 2 (nothing elsewhere). */
ATCMD_API int send_ptest_data(uint32_t index);
/* One test line every 100 ms, for ever; the client starts it if it wants. */
ATCMD_API void *atcmder_TestTx_thread(void *arg);
ATCMD_API extern pthread_t g_TestTx_thread;

#ifdef __cplusplus
}
#endif

#endif /* ATCMDPROCESS_H */

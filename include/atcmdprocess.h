/*
 * atcmdprocess: the hardware module that carries the AT-command protocol
 * between the phone's HIDL service and the kavren accessory.
 *
 * This is the one header a client compiles against: the module and device
 * records, the command record, the callback message and what its payload
 * holds, and the few functions a client calls by name. Every function and
 * global declared here is exported from atcmdprocess.default.so with C
 * linkage under exactly this name. The module exports some more names for
 * its own build and tests; a client never needs them.
 */
#ifndef ATCMDPROCESS_H
#define ATCMDPROCESS_H

#include <stddef.h>
#include <stdint.h>

#include <hardware/hardware.h>

#define ATCMD_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Command record                                                            */
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

/* The module record the loader looks up; its open hands out one device. */
ATCMD_API extern struct hw_module_t HMI;

/* ------------------------------------------------------------------------ */
/* AT protocol                                                               */
/* ------------------------------------------------------------------------ */

/* Rows of the command table: the cmd_id of every record and of every callback
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

/* The command table, row by row: a client reads it for each row's name
 * (its cmd_id is the row). The parser column is the module's own. */
typedef unsigned int (*atcmd_parser_t)(AtCmder_t *cmd);

typedef struct at_cmd {
    const char *name;      /* as on the wire, always starting with '+' */
    atcmd_parser_t parser; /* NULL for rows that have none */
} at_cmd_t;

ATCMD_API extern const at_cmd_t AT_CMDS[ATCMD_NUM_CMDS];

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

/* The reply time-outs: how long a command waits for its reply before it is
 * sent again, chosen for the current platform and cast mode. The module sets
 * them at start-up; a client calls this again after changing either. */
ATCMD_API void Init_TimeoutPara(void);

/* Writes one record to the module's log, field by field. */
ATCMD_API void dump_atcmd_data(const AtCmder_t *cmd);

/* ------------------------------------------------------------------------ */
/* Accessory information                                                     */
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

/* Filled by the module as replies come; a client may read it. */
ATCMD_API extern kavren_devInfo_t g_kavren_devInfo;
/* ------------------------------------------------------------------------ */
/* Queries to the accessory                                                  */
/* ------------------------------------------------------------------------ */

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

/* Tells the accessory the phone's state (ATCMD_STATE_*) in a "+STATE" line. */
ATCMD_API int send_stateToMPHONE(int32_t state);

/* ------------------------------------------------------------------------ */
/* Factory test traffic                                                      */
/* ------------------------------------------------------------------------ */

/* Queues "AT+PTEST=<pattern>#<index>&2" on platform 2 (nothing elsewhere). */
ATCMD_API int send_ptest_data(uint32_t index);
/* One test line every 100 ms, for ever; the client starts it if it wants. */
ATCMD_API void *atcmder_TestTx_thread(void *arg);

#ifdef __cplusplus
}
#endif

#endif /* ATCMDPROCESS_H */

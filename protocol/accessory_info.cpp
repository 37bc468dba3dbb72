// The accessory's identity record. It lives with the parsers, which are its
// only writers; the model codes are the two the firmware knows.
#include "protocol/accessory_info.h"

kavren_devInfo_t g_kavren_devInfo;
char type_with_wifi[32] = "KM5816W";
char type_without_wifi[32] = "KM5816N";

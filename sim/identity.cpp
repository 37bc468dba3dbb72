#include "sim/identity.h"

namespace atsim {

Identity Identity::defaults() {
    Identity id;
    id.values = {
        {"+TYPE", "KM5816W"},
        {"+SN", "KV5816A00123"},
        {"+SID", "SID-0001"},
        {"+VER", "MCU:1.0.2,BT:2.1,WIFI:3.3,AML:V20231105_user,TP:7,CAM:8,BOOT:9"},
        {"+BAT", "85,1,3900,250,1,0"},
        {"+SCREEN", "1"},
        {"+USBSTATE", "1,3"},
        {"+STATE", "ACTIVE"},
        {"+BLEMAC", "11:22:33:44:55:66"},
        {"+BTMAC", "11:22:33:44:55:66"},
        {"+MICMODE", "0"},
        {"+MODE", "0"},
    };
    return id;
}

}  // namespace atsim

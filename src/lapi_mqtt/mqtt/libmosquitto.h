#pragma once

/// libmosquitto with MQTT 5's constants, which its own header brings along from 2.1 on.
#include <mosquitto.h>

#if LIBMOSQUITTO_VERSION_NUMBER < 2001000
#include <mqtt_protocol.h>
#endif

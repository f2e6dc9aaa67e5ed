#include "platform/Logging.h"

Q_LOGGING_CATEGORY(lcCompression, "com.orvik.app.compression")

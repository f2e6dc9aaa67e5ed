#pragma once

#include <QLoggingCategory>

/// Diagnostic lines of the compression engine ("com.orvik.app.compression").
Q_DECLARE_LOGGING_CATEGORY(lcCompression)

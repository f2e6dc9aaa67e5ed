#include "platform/ScopedAccess.h"

#include <utility>

ScopedAccess::ScopedAccess(QString path) : m_path(std::move(path)), m_started(startAccessing(m_path)) {}

ScopedAccess::~ScopedAccess()
{
    if (m_started)
        stopAccessing(m_path);
}

bool ScopedAccess::startAccessing(const QString& path)
{
    // Nothing to request outside a sandbox.
    return !path.isEmpty();
}

void ScopedAccess::stopAccessing(const QString&) {}

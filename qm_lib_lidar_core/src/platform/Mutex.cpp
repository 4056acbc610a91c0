#include "platform/Mutex.h"

#include <vxunpack/Base.h>

namespace Quillmoran {

Mutex::Mutex()
{
    if (pthread_mutex_init(&m_mutex, nullptr) != 0)
        throw OSError(__FILE__, "Mutex", __LINE__);
}

Mutex::~Mutex()
{
    pthread_mutex_destroy(&m_mutex);
}

void Mutex::lock()
{
    if (pthread_mutex_lock(&m_mutex) != 0)
        throw OSError(__FILE__, "lock", __LINE__);
}

void Mutex::unlock()
{
    if (pthread_mutex_unlock(&m_mutex) != 0)
        throw OSError(__FILE__, "unlock", __LINE__);
}

} // namespace Quillmoran

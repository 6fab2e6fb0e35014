#include "predicateerror.h"

using namespace Qt::StringLiterals;

QString PredicateError::toString() const
{
    if (m_position < 0)
        return m_message;
    return m_message % u" (at character "_s % QString::number(m_position + 1) % u')';
}

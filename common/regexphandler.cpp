#include "regexphandler.h"

RegExpHandler::RegExpHandler(const QString &pattern)
    : m_regExp(pattern, Qt::CaseSensitive, QRegExp::RegExp)
{}

RegExpHandler::~RegExpHandler() = default;

bool RegExpHandler::appendMissing(QByteArray *tail)
{
    Q_UNUSED(tail)
    return false;
}

void RegExpHandler::setRegExp(const QRegExp &regExp)
{
    m_regExp = regExp;
}

const QRegExp &RegExpHandler::regExp() const
{
    return m_regExp;
}

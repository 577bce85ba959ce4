#include "pamoptionshandler_p.h"

#include "accountlockout_p.h"
#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

#include <QJsonArray>

namespace {
const QRegExp Blanks(QStringLiteral("\\s+"));
// Options are told apart by their name only when rewriting, so the digits do not matter there.
const QString AnyOptionPattern = QStringLiteral("([^=]+)=?(\\d+)?");
// Capture 1: one of the managed names; capture 2: the number, if any.
const QString ManagedOptionPattern = QStringLiteral("(%1)=?(%2)?");
const QString NumberFormat = QStringLiteral(" %1=%2");
const QString Digits = QStringLiteral("\\d+");
const QString SignedDigits = QStringLiteral("-?\\d+");

bool isWrittenOn(PamOptions::WrittenSwitch rule, const QJsonArray &value)
{
    if (rule == PamOptions::WrittenSwitch::ExactPair)
        return SwitchedNumber::isOn(value);
    return !value.isEmpty() && value.at(0).isBool() && value.at(0).toBool();
}
} // namespace

namespace PamOptions {

// One row per PAM module. Where the rows differ, the modules differ on purpose; the comments say
// why. The fields are in the order of Shape: reading pattern and its options capture, rewriting
// pattern and its options capture, flags, numbers, number digits, numbers whose 0 reads as off,
// rule for writing a number.
const Shape Tally = {
    QStringLiteral("(?:.*pam_tally\\.so)((?:\\s+\\S+)*)"),
    1,
    QStringLiteral("(\\s*.*pam_tally\\.so)((?:\\s+\\S+)*)"),
    2,
    AccountLockout::FlagKeys,
    AccountLockout::NumberKeys,
    // Counts and seconds have no sign: "deny=-3" reads as deny without a number, [true, 0].
    Digits,
    // Every lockout number read is in force, 0 included: "deny=0" reads as [true, 0].
    {},
    // The lockout rewriter takes any array whose first element is true, a missing number being
    // 0 ("deny": [true] writes deny=0); that looser rule is its own and is kept.
    WrittenSwitch::FirstIsTrue,
};

const Shape Complexity = {
    // Capture 1 is the module name, so the options come second.
    QStringLiteral("(?:.*(pam_cracklib|pam_pwquality)\\.so)((?:\\s+\\S+)*)"),
    2,
    // Capture 2 is the module name, so the options come third.
    QStringLiteral("(.*(pam_cracklib|pam_pwquality)\\.so)((?:\\s+\\S+)*)"),
    3,
    PasswordComplexity::FlagKeys,
    PasswordComplexity::NumberKeys,
    // A negative credit is a minimum count of characters of its class, so credits carry a sign.
    SignedDigits,
    // A credit of 0 asks for nothing and reads as off; minlen stays on whatever its value.
    PasswordComplexity::CreditKeys,
    // Only a well-formed [true, N] is written; anything else drops the option.
    WrittenSwitch::ExactPair,
};

const Shape History = {
    QStringLiteral("(?:.*pam_pwhistory\\.so)((?:\\s+\\S+)*)"),
    1,
    // Not rewritten line by line: the module owns its profile and writes it whole.
    QString(),
    0,
    {PasswordHistory::EnforceForRootKey},
    {PasswordHistory::RememberKey},
    // A count has no sign: "remember=-3" reads as remember without a number, [false, 0].
    Digits,
    // Remembering no password keeps no history, so remember=0 reads as off.
    {PasswordHistory::RememberKey},
    // Unused: there is no history rewriter.
    WrittenSwitch::ExactPair,
};

void storeDefaults(const Shape &shape, QHash<QString, QVariant> &result)
{
    for (const QString &flag : shape.flags)
        result.insert(flag, false);
    for (const QString &number : shape.numbers)
        result.insert(number, SwitchedNumber::off());
}

bool readLine(const Shape &shape, const QRegExp &line, QHash<QString, QVariant> &result,
              bool *found)
{
    // Searched, not anchored: "xminlen=5" counts as minlen. No managed name is the start of
    // another, so the order of the alternatives does not matter.
    QRegExp option(ManagedOptionPattern.arg((shape.flags + shape.numbers).join(QLatin1Char('|')),
                                            shape.numberPattern));
    const QStringList options = line.cap(shape.readingOptions).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &text : options) {
        if (option.indexIn(text) == -1)
            continue;
        const QString name = option.cap(1);
        if (shape.flags.contains(name)) {
            result.insert(name, true);
            continue;
        }
        const qint64 number = option.cap(2).toLongLong();
        const bool on = number != 0 || !shape.zeroReadsOff.contains(name);
        result.insert(name, SwitchedNumber::make(on, number));
    }
    *found = true;
    return true;
}

bool rewriteLine(const Shape &shape, const QRegExp &line, const QHash<QString, QVariant> &settings,
                 QByteArray *content, bool *found)
{
    if (!content)
        return false;
    QString text = line.cap(1);

    const QStringList managed = shape.flags + shape.numbers;
    QRegExp option(AnyOptionPattern);
    const QStringList options = line.cap(shape.rewritingOptions).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &token : options) {
        if (option.indexIn(token) == -1 || !managed.contains(option.cap(1)))
            text += QLatin1Char(' ') + token;
    }

    for (const QString &flag : shape.flags) {
        if (settings.value(flag, false).toBool())
            text += QLatin1Char(' ') + flag;
    }
    for (const QString &number : shape.numbers) {
        const QJsonArray value = SwitchedNumber::setting(settings, number);
        if (isWrittenOn(shape.writtenSwitch, value))
            text += NumberFormat.arg(number, QString::number(SwitchedNumber::number(value)));
    }
    *content = text.toLocal8Bit();
    *found = true;
    return true;
}

} // namespace PamOptions

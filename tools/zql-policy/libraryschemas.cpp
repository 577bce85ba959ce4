// The settings every module of the library takes: the one place that says what a policy may
// hold, for the check and for `zql-policy schema`. A module joins the registry with its schema
// (moduleregistry.cpp); the test librarySchemasCoverEveryModule fails for one without.
#include "libraryschemas.h"

#include <limits>

namespace ZqlPolicy {

namespace {

constexpr qint64 IntMax = std::numeric_limits<int>::max();

ValueRule flag()
{
    return ValueRule::boolean();
}

// Days in /etc/login.defs and /etc/default/useradd: -1 switches a limit off there, 99999 is
// the customary "never".
ValueRule days()
{
    return ValueRule::switchedNumber(-1, 99999);
}

} // namespace

SettingsSchema LibrarySchemas::accountLockout()
{
    return SettingsSchema({
        {QStringLiteral("per_user"), flag()},
        {QStringLiteral("magic_root"), flag()},
        {QStringLiteral("no_reset"), flag()},
        // pam_tally counts failures in 16 bits.
        {QStringLiteral("deny"), ValueRule::switchedNumber(0, 65535)},
        {QStringLiteral("lock_time"), ValueRule::switchedNumber(0, IntMax)},   // seconds
        {QStringLiteral("unlock_time"), ValueRule::switchedNumber(0, IntMax)}, // seconds
    });
}

SettingsSchema LibrarySchemas::passwordPolicy()
{
    const ValueRule credit = ValueRule::switchedNumber(-512, 512);
    const ValueRule complexity = ValueRule::table({
        {QStringLiteral("reject_username"), flag()},
        {QStringLiteral("gecoscheck"), flag()},
        {QStringLiteral("enforce_for_root"), flag()},
        {QStringLiteral("minlen"), ValueRule::switchedNumber(0, 512)},
        {QStringLiteral("lcredit"), credit},
        {QStringLiteral("ucredit"), credit},
        {QStringLiteral("dcredit"), credit},
        {QStringLiteral("ocredit"), credit},
    });
    const ValueRule validityPeriod = ValueRule::table({
        {QStringLiteral("maxInterval"), days()},
        {QStringLiteral("minInterval"), days()},
        {QStringLiteral("warningInterval"), days()},
        {QStringLiteral("inactiveInterval"), days()},
        // Days since 1970-01-01, up to 9999-12-31.
        {QStringLiteral("expireDate"), ValueRule::switchedNumber(0, 2932896)},
    });
    const ValueRule history = ValueRule::table({
        {QStringLiteral("enforce_for_root"), flag()},
        // pam_pwhistory keeps at most 400 old passwords.
        {QStringLiteral("remember"), ValueRule::switchedNumber(0, 400)},
    });
    // Without "complexity" or "validity-period" the module fails without a word; a missing
    // "history" removes the history profile.
    return SettingsSchema({
        {QStringLiteral("complexity"), complexity, true},
        {QStringLiteral("validity-period"), validityPeriod, true},
        {QStringLiteral("history"), history},
    });
}

SettingsSchema LibrarySchemas::userCreationPolicy()
{
    return SettingsSchema({
        {QStringLiteral("DHOME"), ValueRule::absolutePath()},
        {QStringLiteral("SKEL"), ValueRule::absolutePath()},
        {QStringLiteral("DSHELL"), ValueRule::absolutePath()},
        {QStringLiteral("USERGROUPS"), flag()},
        // A group id adduser can use: not the "no group" id 2^32 - 1, and one the module writes
        // as it is.
        {QStringLiteral("USERS_GID"), ValueRule::integer(0, IntMax)},
    });
}

SettingsSchema LibrarySchemas::loginLocal()
{
    return SettingsSchema({
        {QStringLiteral("login_state"),
         ValueRule::choice({QStringLiteral("all"), QStringLiteral("admin"), QStringLiteral("no")})},
    });
}

SettingsSchema LibrarySchemas::audit()
{
    // The masks travel whole; the module keeps their low 32 bits.
    return SettingsSchema({
        {QStringLiteral("success"), ValueRule::unsignedMask()},
        {QStringLiteral("fail"), ValueRule::unsignedMask()},
    });
}

SettingsSchema LibrarySchemas::digsig()
{
    // A mode name the module does not know (its export says "Unknown" for a number without a
    // name) would be written as 0, off.
    const ValueRule mode =
        ValueRule::choice({QStringLiteral("On"), QStringLiteral("Off"), QStringLiteral("Debug")});
    return SettingsSchema({
        {QStringLiteral("Files"), mode},
        {QStringLiteral("Attributes"), mode},
        {QStringLiteral("Templates"), ValueRule::multiLineText()},
    });
}

SettingsSchema LibrarySchemas::kioskGlobal()
{
    const ValueRule text = ValueRule::text();
    const ValueRule entry = ValueRule::tableList({
        // The file in /etc/xdg/autostart: a name, never a path.
        {QStringLiteral("desktopFileName"), ValueRule::fileName(), true},
        {QStringLiteral("Name"), text},
        {QStringLiteral("LocalName"), text},
        {QStringLiteral("GenericName"), text},
        {QStringLiteral("LocalGenericName"), text},
        {QStringLiteral("Icon"), text},
        {QStringLiteral("LocalIcon"), text},
        {QStringLiteral("Comment"), text},
        {QStringLiteral("LocalComment"), text},
        {QStringLiteral("OnlyShowIn"), ValueRule::textList()},
        {QStringLiteral("Path"), text},
        {QStringLiteral("TryExec"), text},
        {QStringLiteral("X-GNOME-Autostart-Phase"), text},
        {QStringLiteral("X-VELA-Delay"), ValueRule::integer(0, IntMax)}, // seconds
        {QStringLiteral("Exec"), text},
        {QStringLiteral("sandbox"), flag()},
        {QStringLiteral("sandboxArgs"), ValueRule::textList()},
        // The module writes every entry as an application.
        {QStringLiteral("Type"), ValueRule::choice({QStringLiteral("Application")})},
    });
    return SettingsSchema({
        {QStringLiteral("autostartApps"), entry},
        {QStringLiteral("screenLock"), flag()},
    });
}

SettingsSchema LibrarySchemas::maic()
{
    // Categories are the bits of a 64-bit mask, levels one byte; the names are free text.
    return SettingsSchema({
        {QStringLiteral("mac-categories"),
         ValueRule::openTable(QStringLiteral("a category's bit, 0 to 63"),
                              QStringLiteral("^([0-9]|[1-5][0-9]|6[0-3])$"), ValueRule::text())},
        {QStringLiteral("mac-levels"),
         ValueRule::openTable(
             QStringLiteral("a level's number, 0 to 255"),
             QStringLiteral("^([0-9]|[1-9][0-9]|1[0-9][0-9]|2[0-4][0-9]|25[0-5])$"),
             ValueRule::text())},
    });
}

SettingsSchema LibrarySchemas::mac()
{
    return SettingsSchema({
        {QStringLiteral("Mac-kernel"), flag()},
        {QStringLiteral("Apache"), flag()},
        {QStringLiteral("Cups"), flag()},
    });
}

SettingsSchema LibrarySchemas::mic()
{
    return SettingsSchema({
        {QStringLiteral("MicEnabled"), flag()},
        {QStringLiteral("MaxLevel"), ValueRule::integer(0, 255)},
        {QStringLiteral("ProtectFS"), flag()},
    });
}

SettingsSchema LibrarySchemas::securitySwitches()
{
    // The switches are the machine's: their script names under /usr/sbin, each on or off.
    return SettingsSchema::openKeys(
        QStringLiteral("a switch's script name (letters, digits, \".\", \"_\" and \"-\")"),
        QStringLiteral("^[A-Za-z0-9._-]+$"), flag());
}

} // namespace ZqlPolicy

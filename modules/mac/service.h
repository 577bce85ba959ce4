#ifndef ZQLMODULES_MAC_SERVICE_H
#define ZQLMODULES_MAC_SERVICE_H

#include "zqlmodules_export.h"

#include <QString>

namespace Mac {

/**
 * A system service with a MAC switch of its own: one line "DIRECTIVE on|off" in the service's
 * configuration file, read and rewritten here; a change restarts the service if it runs.
 *
 * Touches only the directive's lines of its one configuration file; every other byte of the
 * file stays as it was. The last read or write's failure stays recorded until the next one.
 */
class ZQLMODULES_EXPORT Service
{
public:
    /** What the MAC module shows of a service: its name, its switch and the read's failure. */
    struct State
    {
        QString name;
        bool enabled = false;
        bool hasError = false;
        QString text; ///< the failure's text, empty without one
    };

    virtual ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    /** The settings key: "Apache" or "Cups". */
    virtual QString name() const;

    /** Whether the last read or write failed. */
    virtual bool hasError() const;

    /** The last failure's text, empty without one. */
    virtual QString errorString() const;

    /** A second text of the service; both services have none and return an empty text. */
    virtual QString detailString() const;

    /** Writes the directive as on or off, then restarts the service if it runs. */
    virtual void setEnabled(bool on) = 0;

    /** @return whether the directive reads on. */
    virtual bool isEnabled() = 0;

    /** Forgets the last failure. */
    virtual void clearError();

    /**
     * Sets every line "DIRECTIVE on|off" of @p path, commented or indented ones too, to
     * "DIRECTIVE on|off"; appends the line when there is none.
     */
    virtual void writeDirective(const QString &path, const QString &directive, bool on);

    /** @return whether the first uncommented "DIRECTIVE on|off" line of @p path says on. */
    virtual bool readDirective(const QString &path, const QString &directive);

    /** Reads the switch and gives it with the read's failure, if any. */
    State state();

protected:
    explicit Service(const QString &name);

    /** Writes the directive to @p path and restarts @p unit when it runs (even if the write
     * failed). */
    void applyAndRestart(const QString &path, const QString &directive, const QString &unit,
                         bool on);

private:
    void recordError(const QString &text);

    QString m_name;
    QString m_errorString;
    bool m_hasError = false;
};

} // namespace Mac

#endif // ZQLMODULES_MAC_SERVICE_H

#ifndef ZQLPOLICY_STREAMREDIRECTION_H
#define ZQLPOLICY_STREAMREDIRECTION_H

namespace ZqlPolicy {

/**
 * Puts one file descriptor onto another (standard output onto standard error, say) for the
 * life of the object, and the old one back afterwards. The C streams are flushed at both ends,
 * so nothing written before lands after.
 */
class StreamRedirection
{
public:
    StreamRedirection(int from, int target);
    ~StreamRedirection();
    StreamRedirection(const StreamRedirection &) = delete;
    StreamRedirection &operator=(const StreamRedirection &) = delete;

    /** Whether the redirection is in place. */
    bool ok() const { return m_ok; }

    /** A descriptor of what the target was before (valid while the object lives), or -1. */
    int saved() const { return m_saved; }

private:
    int m_target;
    int m_saved = -1;
    bool m_ok = false;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_STREAMREDIRECTION_H

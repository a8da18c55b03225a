#include "platform/HBOperation.h"

HBOperation::HBOperation() = default;

HBOperation::~HBOperation() = default;

void HBOperation::cancel()
{
    m_cancelled = true;
}

bool HBOperation::isCancelled() const
{
    return m_cancelled;
}

bool HBOperation::isExecuting() const
{
    return m_state == State::Executing;
}

bool HBOperation::isFinished() const
{
    return m_state == State::Finished;
}

bool HBOperation::claimForQueue()
{
    return !m_claimed.exchange(true);
}

void HBOperation::run()
{
    if (!isCancelled()) {
        m_state = State::Executing;
        main();
    }
    m_state = State::Finished;
}

void HBOperation::announceFinished()
{
    emit finished();
}

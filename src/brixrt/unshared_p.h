// SPDX-License-Identifier: MIT
#pragma once

namespace Talverine {

/*!
 * A copy of a list or table of Qt that shares nothing with \a container. It is made under the lock
 * that guards the container, and may be used without.
 *
 * Qt asks without an order between threads whether data is shared. So whoever held the lock next
 * and found that a sharing copy had been let go would write where its reader may just have been.
 */
template<typename Container>
Container unshared(const Container &container)
{
    Container copy(container);
    copy.detach();
    return copy;
}

} // namespace Talverine

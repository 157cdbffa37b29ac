#include "host/GenericList.h"

#include <climits>
#include <cstdlib>
#include <cstring>

GenericList::GenericList() : count(0), m_items(nullptr), m_capacity(0)
{
}

GenericList::~GenericList()
{
    std::free(m_items);
}

void* GenericList::findItem(long index) const
{
    return index >= 0 && index < count ? m_items[index] : nullptr;
}

void GenericList::append(void* item)
{
    insertAt(count, item);
}

void GenericList::insertAt(long index, void* item)
{
    if (count == m_capacity) {
        const int nCapacity = m_capacity < INT_MAX / 2 ? m_capacity * 2 + 8 : INT_MAX;
        const std::size_t nBytes = static_cast<std::size_t>(nCapacity) * sizeof(void*);
        void* pItems = nCapacity > m_capacity && nBytes / sizeof(void*) == static_cast<std::size_t>(nCapacity)
                           ? std::realloc(m_items, nBytes)
                           : nullptr;
        if (pItems == nullptr)
            std::abort();
        m_items = static_cast<void**>(pItems);
        m_capacity = nCapacity;
    }
    if (index < 0)
        index = 0;
    if (index > count)
        index = count;
    std::memmove(m_items + index + 1, m_items + index, static_cast<std::size_t>(count - index) * sizeof(void*));
    m_items[index] = item;
    ++count;
}

void* GenericList::remove(long index)
{
    if (index < 0 || index >= count)
        return nullptr;
    void* item = m_items[index];
    --count;
    std::memmove(m_items + index, m_items + index + 1, static_cast<std::size_t>(count - index) * sizeof(void*));
    return item;
}

void GenericList::clear()
{
    count = 0;
}

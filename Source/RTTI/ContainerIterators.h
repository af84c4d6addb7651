// Iterators over maps and sets of any type.
//
// Threads and ownership: as an iterator of the container; the container outlives it and isn't changed meanwhile.
#pragma once

#include "RTTI/TypeTable.h"

#include <cstdint>

namespace RTTI
{

class MapIterator
{
public:
    virtual ~MapIterator() = default;
    virtual bool IsAtEnd() const = 0;

    // Gives the current pair and advances. REQUIRES: not at the end. The key must not be changed.
    virtual void GetNext(Value& outKey, Value& outValue) = 0;
};

class SetIterator
{
public:
    virtual ~SetIterator() = default;
    virtual bool IsAtEnd() const = 0;

    // Gives the current element and advances. REQUIRES: not at the end. The element must not be changed.
    virtual void GetNext(Value& outElement) = 0;
};

// The position that both kinds of iterator have: a node in the container's own order, and the number of nodes handed out.
template <class Base, class Container>
class HashTableIterator : public Base
{
public:
    explicit HashTableIterator(Container& inContainer) : mContainer(inContainer), mNode(inContainer.begin()) {}

    bool IsAtEnd() const override { return mCount == mContainer.size(); }

protected:
    auto& TakeNode()
    {
        ++mCount;
        return *mNode++;
    }

private:
    Container& mContainer;
    typename Container::iterator mNode;
    uint64_t mCount = 0;
};

template <class Map>
class TypedMapIterator final : public HashTableIterator<MapIterator, Map>
{
public:
    using HashTableIterator<MapIterator, Map>::HashTableIterator;

    void GetNext(Value& outKey, Value& outValue) override
    {
        auto& pair = this->TakeNode();
        outKey = gValueOf(pair.first);
        outValue = gValueOf(pair.second);
    }
};

template <class Set>
class TypedSetIterator final : public HashTableIterator<SetIterator, Set>
{
public:
    using HashTableIterator<SetIterator, Set>::HashTableIterator;

    void GetNext(Value& outElement) override { outElement = gValueOf(this->TakeNode()); }
};

} // namespace RTTI

// A search tree through its own nodes, so that nothing is allocated to put one in.
#pragma once

#include <cstdint>
#include <utility>

namespace qx {

// A number that looks random beside `number`.
constexpr uint32_t Scatter(uint32_t number) {
    number = (number ^ (number >> 16)) * 0x7FEB352D;
    number = (number ^ (number >> 15)) * 0x846CA68B;
    return number ^ (number >> 16);
}

// Keeps itself about balanced, whatever the order in which nodes come: keys next to each other have units next to each
// other. A node has the members Left and Right, Key(), and Spread(), which scatters the key; a parent's is never less
// than its children's. No two nodes have the same key.
template <class Node>
class LockTree {
  public:
    using Key = decltype(std::declval<const Node&>().Key());

    Node* Find(const Key& key) const {
        Node* node = root_;
        while (node != nullptr && node->Key() != key) {
            node = key < node->Key() ? node->Left : node->Right;
        }
        return node;
    }

    // The node with the least key that is not less than this one; null when there is none.
    Node* FindFrom(const Key& key) const {
        Node* found = nullptr;
        for (Node* node = root_; node != nullptr;) {
            if (node->Key() < key) {
                node = node->Right;
            } else {
                found = node;
                node = node->Left;
            }
        }
        return found;
    }

    void Insert(Node& node) {
        Node** link = &root_;
        while (*link != nullptr && (*link)->Spread() >= node.Spread()) {
            link = &Child(**link, node.Key());
        }
        Node* rest = *link;
        *link = &node;
        Node** less = &node.Left;
        Node** more = &node.Right;
        while (rest != nullptr) {
            if (rest->Key() < node.Key()) {
                *less = rest;
                less = &rest->Right;
                rest = *less;
            } else {
                *more = rest;
                more = &rest->Left;
                rest = *more;
            }
        }
        *less = nullptr;
        *more = nullptr;
    }

    void Remove(Node& node) {
        Node** link = &LinkTo(node);
        Node* less = node.Left;
        Node* more = node.Right;
        while (less != nullptr && more != nullptr) {
            if (less->Spread() >= more->Spread()) {
                *link = less;
                link = &less->Right;
                less = *link;
            } else {
                *link = more;
                link = &more->Left;
                more = *link;
            }
        }
        *link = less != nullptr ? less : more;
    }

    // Puts another node with the same key in a node's place.
    void Replace(Node& node, Node& by) {
        LinkTo(node) = &by;
        by.Left = node.Left;
        by.Right = node.Right;
    }

    // In the order of the keys.
    template <class Visit>
    void ForEach(Visit&& visit) const {
        ForEachBelow(root_, visit);
    }

  private:
    static Node*& Child(Node& node, const Key& key) { return key < node.Key() ? node.Left : node.Right; }

    Node*& LinkTo(const Node& node) {
        Node** link = &root_;
        while (*link != &node) {
            link = &Child(**link, node.Key());
        }
        return *link;
    }

    template <class Visit>
    static void ForEachBelow(Node* node, Visit& visit) {
        for (; node != nullptr; node = node->Right) {
            ForEachBelow(node->Left, visit);
            visit(*node);
        }
    }

    Node* root_ = nullptr;
};

}  // namespace qx

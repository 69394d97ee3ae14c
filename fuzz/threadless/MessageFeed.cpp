#include "MessageFeed.h"

MessageFeed& MessageFeed::instance() {
    static MessageFeed s_feed;
    return s_feed;
}

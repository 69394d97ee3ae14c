// What the module's export map has to keep to itself, and one operation that it shows. Linked into a library
// of its own with that map, since the compiler decides whether the module has functions such as these.

#define DECOY __attribute__((visibility("default")))

class DECOY MDMDriverIPCI {
public:
    struct DECOY QueueCmd {};
    void init();
};

class DECOY MDMDecoy {
public:
    void shown();
};

namespace decoys {

template <class T>
DECOY T& returned() {
    static T s_object;
    return s_object;
}

template DECOY MDMDriverIPCI& returned<MDMDriverIPCI>();
template DECOY MDMDriverIPCI::QueueCmd& returned<MDMDriverIPCI::QueueCmd>();

DECOY void taken(MDMDriverIPCI::QueueCmd*) {}

}  // namespace decoys

void MDMDriverIPCI::init() {}
void MDMDecoy::shown() {}

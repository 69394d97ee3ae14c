from tango import AttrWriteType, DevState
from tango.server import Device, attribute


class Lamp(Device):
    # The database keeps a memorized value, and sets it again at the start.
    brightness = attribute(
        dtype=int, access=AttrWriteType.READ_WRITE, min_value=0, max_value=100,
        memorized=True, hw_memorized=True, fget="read_brightness", fset="write_brightness")

    def init_device(self):
        super().init_device()
        self._brightness = 50
        self.set_state(DevState.ON)
        self.set_change_event("State", True, False)
        self.set_change_event("brightness", True, False)

    def read_brightness(self):
        return self._brightness

    def write_brightness(self, percent):
        self._brightness = percent
        self.push_change_event("brightness", percent)
        self.set_fault(percent == 100)

    def set_fault(self, is_hot):
        self.set_state(DevState.FAULT if is_hot else DevState.ON)
        self.set_status("too hot" if is_hot else "on")
        self.push_change_event("State")


if __name__ == "__main__":
    Lamp.run_server()

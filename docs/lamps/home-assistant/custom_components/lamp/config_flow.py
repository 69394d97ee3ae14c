from homeassistant.config_entries import ConfigFlow


class LampConfigFlow(ConfigFlow, domain="lamp"):
    VERSION = 1

    async def async_step_user(self, user_input=None):
        if user_input is None:
            return self.async_show_form(step_id="user")
        return self.async_create_entry(title="Lamp", data={})

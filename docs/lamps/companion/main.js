import { InstanceBase, InstanceStatus, combineRgb } from '@companion-module/base'

export default class Lamp extends InstanceBase {
	async init(config) {
		this.config = config
		this.setVariableDefinitions([{ variableId: 'brightness', name: 'Brightness' }])
		this.setActionDefinitions({
			brightness: {
				name: 'Set brightness',
				options: [
					{ id: 'percent', type: 'number', label: 'Percent', default: 50, min: 0, max: 100 },
				],
				callback: async (action) => this.setBrightness(Number(action.options.percent)),
			},
		})
		this.setFeedbackDefinitions({
			fault: {
				type: 'boolean',
				name: 'Too hot',
				defaultStyle: { bgcolor: combineRgb(200, 0, 0) },
				options: [],
				callback: () => this.brightness === 100,
			},
		})
		this.updateStatus(InstanceStatus.Ok)
		this.show(config.brightness ?? 50)
	}

	setBrightness(percent) {
		this.config = { ...this.config, brightness: percent }
		this.saveConfig(this.config)
		this.show(percent)
	}

	show(percent) {
		this.brightness = percent
		this.setVariableValues({ brightness: percent })
		this.checkFeedbacks('fault')
		if (percent === 100) this.log('error', 'too hot')
	}

	async configUpdated(config) {
		this.config = config
	}

	getConfigFields() {
		return []
	}

	async destroy() {}
}

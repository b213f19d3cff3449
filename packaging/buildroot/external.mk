include $(sort $(wildcard $(BR2_EXTERNAL_ROVU_PATH)/package/*/*.mk))

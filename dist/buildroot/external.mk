include $(sort $(wildcard $(BR2_EXTERNAL_LINKRIG_PATH)/package/*/*.mk))
